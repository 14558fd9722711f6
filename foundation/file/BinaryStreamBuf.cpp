#include "file/BinaryStreamBuf.h"

#include <algorithm>
#include <cstring>

namespace Vantu {

void ThrowNotImplemented(const char* what) { throw Exception::FromText(FromUtf8(what)); }

size_t BaseBinaryStreamBuf::Get(void* data, size_t n) {
    if (n == 0) return 0;
    const size_t fromPending = TakePending(data, n);
    if (fromPending == n) return n;
    return fromPending + vGet(static_cast<uint8_t*>(data) + fromPending, n - fromPending);
}

void BaseBinaryStreamBuf::PutExact(const void* data, size_t n) {
    const size_t put = Put(data, n);
    if (put != n) {
        ThrowStream<BinaryStreamPutEOFException>("Stream full: " + std::to_string(put) + " of " +
                                                 std::to_string(n) + " bytes written");
    }
}

void BaseBinaryStreamBuf::GetExact(void* data, size_t n) {
    const size_t got = Get(data, n);
    if (got != n) {
        ThrowStream<BinaryStreamGetEOFException>("Unexpected end of stream: " + std::to_string(got) + " of " +
                                                 std::to_string(n) + " bytes read");
    }
}

size_t BaseBinaryStreamBuf::Copy(std::u16string& text, size_t count) {
    text.clear();
    // Pending bytes are whole units only when a caller put whole units back; read them one unit at a time.
    while (PendingSize() > 0 && text.size() < count) {
        char16_t unit;
        if (Get(&unit, sizeof unit) != sizeof unit) return text.size();
        text.push_back(unit);
    }
    const size_t done = text.size();
    if (done == count) return done;
    std::u16string rest;
    const size_t got = vCopy(rest, count - done);
    text += rest;
    return done + got;
}

size_t BaseBinaryStreamBuf::Copy(std::string& text, size_t count) {
    text.clear();
    const size_t pending = std::min(PendingSize(), count);
    text.resize(pending);
    TakePending(text.data(), pending);
    if (pending == count) return count;
    std::string rest;
    const size_t got = vCopy(rest, count - pending);
    text += rest;
    return pending + got;
}

size_t BaseBinaryStreamBuf::CopyTo(BaseBinaryStreamBuf& target, size_t n) {
    size_t done = 0;
    uint8_t round[kCopyRound];
    while (PendingSize() > 0 && done < n) {
        const size_t got = TakePending(round, std::min(sizeof round, n - done));
        target.PutExact(round, got);
        done += got;
    }
    return done == n ? done : done + vCopy(target, n - done);
}

void BaseBinaryStreamBuf::Clear() {
    DropPending();
    vClear();
}

void BaseBinaryStreamBuf::ClearMemory() {
    Clear();
    vClearMemory();
}

void BaseBinaryStreamBuf::SetPending(const void* data, size_t n) {
    const auto* bytes = static_cast<const uint8_t*>(data);
    std::vector<uint8_t> block(bytes, bytes + n);
    block.insert(block.end(), pending_.begin() + pendingRead_, pending_.end());
    pending_ = std::move(block);
    pendingRead_ = 0;
}

void BaseBinaryStreamBuf::DropPending() {
    pending_ = {};
    pendingRead_ = 0;
}

size_t BaseBinaryStreamBuf::SkipPending(size_t n) {
    const size_t skipped = std::min(n, PendingSize());
    pendingRead_ += skipped;
    if (PendingSize() == 0) DropPending();
    return skipped;
}

size_t BaseBinaryStreamBuf::TakePending(void* data, size_t n) {
    const size_t take = std::min(n, PendingSize());
    if (take == 0) return 0;
    std::memcpy(data, pending_.data() + pendingRead_, take);
    SkipPending(take);
    return take;
}

size_t BaseBinaryStreamBuf::vCopy(std::u16string& text, size_t count) {
    text.clear();
    char16_t round[kCopyRound / sizeof(char16_t)];
    while (text.size() < count) {
        const size_t want = std::min(std::size(round), count - text.size());
        size_t got = vGet(round, want * sizeof(char16_t));
        // A source may stop inside a unit; one more read completes it or shows the real end.
        if (got % 2 != 0) got += vGet(reinterpret_cast<uint8_t*>(round) + got, 1);
        text.append(round, got / sizeof(char16_t));
        if (got < want * sizeof(char16_t)) break;
    }
    return text.size();
}

size_t BaseBinaryStreamBuf::vCopy(std::string& text, size_t count) {
    text.clear();
    char round[kCopyRound];
    while (text.size() < count) {
        const size_t want = std::min(sizeof round, count - text.size());
        const size_t got = vGet(round, want);
        text.append(round, got);
        if (got < want) break;
    }
    return text.size();
}

size_t BaseBinaryStreamBuf::vCopy(BaseBinaryStreamBuf& target, size_t n) {
    size_t done = 0;
    uint8_t round[kCopyRound];
    while (done < n) {
        const size_t got = vGet(round, std::min(sizeof round, n - done));
        if (got == 0) break;
        target.PutExact(round, got);
        done += got;
    }
    return done;
}

uint64_t SeekTarget(uint64_t current, uint64_t size, uint64_t limit, uint64_t offset, SeekOrigin origin,
                    SeekDirection direction) {
    const uint64_t base = origin == kSeekBegin ? 0 : origin == kSeekEnd ? size : current;
    const bool backward = direction == kSeekBackward;
    if ((backward && offset > base) || (!backward && offset > limit - std::min(limit, base))) {
        ThrowStream<BinaryStreamException>("Seek out of range: " + std::string(backward ? "-" : "+") +
                                           std::to_string(offset) + " from " + std::to_string(base));
    }
    return backward ? base - offset : base + offset;
}

}  // namespace Vantu
