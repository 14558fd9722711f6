// A free list kept in a ".pty" file: it changes on disk only when the owner saves it at Commit, and the
// file is replaced as a state file, so a crash leaves the old list or the new one.
// Not synchronised: the owning store guards it with the section of its data file.
#pragma once

#include "file/BinaryStreamMemoryBuffer.h"
#include "file/EmptyListT.h"
#include "file/FileSystem.h"
#include "file/StateFile.h"

namespace VantuFile {

template <class T>
class PersistentEmptyListT : public EmptyListT<T> {
public:
    explicit PersistentEmptyListT(std::string path, T maxBlockSize = EmptyListT<T>::kAll,
                                  T initialSize = EmptyListT<T>::kAll)
        : EmptyListT<T>(maxBlockSize, initialSize), path_(std::move(path)) {}

    const std::string& Path() const { return path_; }

    // Loads the saved list, finishing a replacement that a crash cut short; with no file, the initial block.
    // A file whose length or blocks can't be right raises a FileException naming it.
    void Reload() {
        StateFile::Recover(path_);
        std::string bytes;
        if (!StateFile::Read(path_, bytes)) return EmptyListT<T>::Clear();
        Validate(bytes);
        StaticMemoryBuffer memory(bytes.data(), bytes.size());
        Vantu::BinaryStreamT<unsigned int> in(memory);
        this->Read(in);
        if (this->Blocks().empty()) EmptyListT<T>::Clear();
    }

    // Writes the list as it stands, durably replacing the file.
    void Save() const {
        MemoryBuffer memory(8192);
        Vantu::BinaryStreamT<unsigned int> out(memory);
        this->Write(out);
        StateFile::Replace(path_, std::string(reinterpret_cast<const char*>(memory.Data()), memory.Size()));
    }

    // Empties the list back to its initial block and deletes the file.
    void Clear() override {
        EmptyListT<T>::Clear();
        DeleteDurably(path_ + ".new");
        DeleteDurably(path_);
    }

protected:
    std::string Name() const override { return path_; }

private:
    void Validate(const std::string& bytes) const {
        const size_t record = EmptyListT<T>::kRecordSize;
        if (bytes.size() < 4 || (bytes.size() - 4) % record) ThrowCorruptFile(path_, "its length is not a whole list");
        uint32_t count = 0;
        for (int i = 3; i >= 0; --i) count = count << 8 | uint8_t(bytes[i]);
        if (count != (bytes.size() - 4) / record) ThrowCorruptFile(path_, "its block count doesn't match its length");
        uint64_t end = 0;
        for (uint32_t i = 0; i < count; ++i) {
            uint64_t offset = Field(bytes, 4 + i * record), size = Field(bytes, 4 + i * record + sizeof(T));
            if (size == 0 || offset < end || offset + size < offset || offset + size > EmptyListT<T>::kAll)
                ThrowCorruptFile(path_, "block " + std::to_string(i) + " is empty, out of order or out of range");
            end = offset + size;
        }
    }

    static uint64_t Field(const std::string& bytes, size_t at) {
        uint64_t v = 0;
        for (size_t i = sizeof(T); i-- > 0;) v = v << 8 | uint8_t(bytes[at + i]);
        return v;
    }

    std::string path_;
};

}  // namespace VantuFile
