#include "core/Messages.h"

#include <map>
#include <mutex>
#include <shared_mutex>
#include <utility>
#include <vector>

#include "core/Exception.h"

namespace VantuMessages {

namespace {

struct Table {
    std::shared_mutex lock;
    std::map<std::pair<std::string, int32_t>, std::vector<std::u16string>> texts;  // one per language
    int users = 0;
};

Table& TheTable() {
    static Table table;
    return table;
}

class BlockReader {
public:
    BlockReader(const unsigned char* data, unsigned int size, const char* name)
        : data_(data), size_(size), name_(name ? name : "") {}

    uint32_t U32() {
        Need(4);
        uint32_t v = data_[pos_] | data_[pos_ + 1] << 8 | data_[pos_ + 2] << 16 | uint32_t(data_[pos_ + 3]) << 24;
        pos_ += 4;
        return v;
    }
    uint8_t U8() {
        Need(1);
        return data_[pos_++];
    }
    std::string Bytes(uint32_t n) {
        Need(n);
        std::string s(reinterpret_cast<const char*>(data_ + pos_), n);
        pos_ += n;
        return s;
    }
    std::u16string Utf16(uint32_t bytes) {
        if (bytes % 2) Fail();
        Need(bytes);
        std::u16string s(bytes / 2, u'\0');
        for (uint32_t i = 0; i < bytes / 2; ++i) s[i] = char16_t(data_[pos_ + 2 * i] | data_[pos_ + 2 * i + 1] << 8);
        pos_ += bytes;
        return s;
    }

private:
    void Need(uint64_t n) {
        if (pos_ + n > size_) Fail();
    }
    [[noreturn]] void Fail() {
        throw Vantu::Exception::FromText(u"Malformed message block " + Vantu::FromUtf8(name_));
    }
    const unsigned char* data_;
    uint64_t size_;
    uint64_t pos_ = 0;
    std::string name_;
};

}  // namespace

void Load(const unsigned char* data, unsigned int size, const char* name) {
    BlockReader in(data, size, name);
    std::vector<std::pair<std::pair<std::string, int32_t>, std::vector<std::u16string>>> records;
    for (uint32_t n = in.U32(); n > 0; --n) {
        std::string domain = in.Bytes(in.U32());
        int32_t id = int32_t(in.U32());
        std::vector<std::u16string> languages(in.U32());
        for (auto& text : languages)
            if (in.U8()) text = in.Utf16(in.U32());
        records.push_back({{std::move(domain), id}, std::move(languages)});
    }
    Table& table = TheTable();
    std::unique_lock guard(table.lock);
    for (auto& [key, texts] : records) table.texts[key] = std::move(texts);
}

void Register(const std::string& domain, int32_t id, std::u16string text) {
    Table& table = TheTable();
    std::unique_lock guard(table.lock);
    table.texts[{domain, id}] = {std::move(text), u""};
}

std::u16string ReadMessage(const std::string& domain, int32_t id, Language language) {
    Table& table = TheTable();
    std::shared_lock guard(table.lock);
    auto it = table.texts.find({domain, id});
    size_t index = language < 0 ? 0 : size_t(language);
    if (it != table.texts.end() && index < it->second.size()) return it->second[index];
    return u"[" + Vantu::FromUtf8(domain) + u" message " + Vantu::FromUtf8(std::to_string(id)) + u"]";
}

void Init() {
    Table& table = TheTable();
    std::unique_lock guard(table.lock);
    ++table.users;
}

void Free() {
    Table& table = TheTable();
    std::unique_lock guard(table.lock);
    if (table.users > 0 && --table.users == 0) table.texts.clear();
}

}  // namespace VantuMessages
