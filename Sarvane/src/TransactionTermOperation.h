// One occurrence record of one term in one document, as a slice transaction carries it: the posting, the length
// of its position data, and in memory a pointer to that data, which the operation doesn't own. A plain value.
#pragma once

#include <cstdint>

#include "DocIDWeightStruct.h"

namespace Ostrel {

class TransactionTermOperation {
public:
    // The file form: the six posting bytes and the u16 data length, little-endian.
    static constexpr uint32_t kFileSize = 8;

    TransactionTermOperation() = default;
    TransactionTermOperation(uint32_t documentId, uint32_t positionCount, uint16_t termFlags)
        : weight_(documentId, positionCount, termFlags) {}

    const DocIDWeightStruct& Weight() const { return weight_; }
    uint32_t DocumentId() const { return weight_.DocumentId(); }
    uint32_t PositionCount() const { return weight_.PositionCount(); }
    uint16_t TermFlags() const { return weight_.TermFlags(); }
    uint16_t DataLength() const { return dataLength_; }
    const uint8_t* Data() const { return data_; }
    void SetData(const uint8_t* data, uint16_t length) {
        data_ = data;
        dataLength_ = length;
    }

    void ToFile(uint8_t out[kFileSize]) const;
    static TransactionTermOperation FromFile(const uint8_t in[kFileSize]);

    bool operator<(const TransactionTermOperation& o) const { return weight_ < o.weight_; }
    bool operator==(const TransactionTermOperation& o) const { return weight_ == o.weight_; }

private:
    DocIDWeightStruct weight_;
    uint16_t dataLength_ = 0;
    const uint8_t* data_ = nullptr;
};

}  // namespace Ostrel
