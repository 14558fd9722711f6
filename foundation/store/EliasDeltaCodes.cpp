#include "store/EliasDeltaCodes.h"

#include <bit>
#include <cstdint>
#include <string>

#include "core/Exception.h"
#include "core/Text.h"
#include "file/BinaryStreamException.h"

namespace VantuCompression {

namespace {

constexpr unsigned int kMaxLengthZeros = 5;  // a value of up to 33 bits has a length of 6 bits

[[noreturn]] void ThrowCorrupt() { Vantu::ThrowStream<Vantu::BinaryStreamException>("EliasDeltaCodes: corrupt coded list"); }

void PutCode(BitsReaderWriter& bits, uint64_t value) {
    unsigned int length = static_cast<unsigned int>(std::bit_width(value));
    unsigned int lengthBits = static_cast<unsigned int>(std::bit_width(length));
    // lengthBits - 1 zeros, the length, then the value without its leading 1, as one run of bits.
    uint64_t code = (uint64_t{length} << (length - 1)) | (value & ((uint64_t{1} << (length - 1)) - 1));
    bits.PutBits(code, 2 * lengthBits - 1 + length - 1);
}

uint64_t GetCode(BitsReaderWriter& bits) {
    unsigned int zeros = bits.SkipZeros(kMaxLengthZeros);
    if (zeros > kMaxLengthZeros) ThrowCorrupt();
    auto length = static_cast<unsigned int>(bits.GetBits(zeros + 1));
    if (length > 33) ThrowCorrupt();
    return (uint64_t{1} << (length - 1)) | bits.GetBits(length - 1);
}

template <class Sink>
unsigned int Decode(BitsReaderWriter& bits, bool gaps, unsigned int base, Sink sink) {
    uint64_t count = GetCode(bits);
    if (count > UINT32_MAX) ThrowCorrupt();
    uint64_t previous = base;
    for (uint64_t i = 0; i < count; ++i) {
        uint64_t entry = previous + GetCode(bits) - 1;
        if (entry > UINT32_MAX) ThrowCorrupt();
        sink(static_cast<unsigned int>(entry));
        if (gaps) previous = entry;
    }
    bits.EndRead();
    return static_cast<unsigned int>(count);
}

}  // namespace

void EliasDeltaCodes::Compress(const Vantu::FastVector<unsigned int>& list, bool gaps, BitsReaderWriter& bits,
                               unsigned int base) const {
    if (list.empty()) throw Vantu::Exception::FromText(u"EliasDeltaCodes: an empty list has no coded form");
    // Checked before the first bit, so that a refused list leaves nothing half written.
    unsigned int previous = base;
    for (unsigned int entry : list) {
        if (entry < previous)
            throw Vantu::Exception::FromText(Vantu::FromUtf8("EliasDeltaCodes: entry " + std::to_string(entry) +
                                                             " comes after " + std::to_string(previous)));
        if (gaps) previous = entry;
    }
    PutCode(bits, list.size());
    previous = base;
    for (unsigned int entry : list) {
        PutCode(bits, uint64_t{entry} - previous + 1);
        if (gaps) previous = entry;
    }
    bits.EndWrite();
}

unsigned int EliasDeltaCodes::Uncompress(BitsReaderWriter& bits, bool gaps, Vantu::FastVector<unsigned int>& list,
                                         unsigned int base) const {
    return Decode(bits, gaps, base, [&](unsigned int entry) { list.push_back(entry); });
}

unsigned int EliasDeltaCodes::Uncompress(BitsReaderWriter& bits, bool gaps, VantuAlgo::BitVector& vector, bool value,
                                         bool grow, unsigned int base) const {
    return Decode(bits, gaps, base, [&](unsigned int entry) {
        if (grow || entry < vector.size()) vector.set(entry, value);
    });
}

}  // namespace VantuCompression
