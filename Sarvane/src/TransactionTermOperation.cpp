#include "TransactionTermOperation.h"

#include <cstring>

namespace Ostrel {

// The platform is little-endian, and so is the file.
void TransactionTermOperation::ToFile(uint8_t out[kFileSize]) const {
    std::memcpy(out, &weight_, sizeof weight_);
    std::memcpy(out + sizeof weight_, &dataLength_, 2);
}

TransactionTermOperation TransactionTermOperation::FromFile(const uint8_t in[kFileSize]) {
    TransactionTermOperation operation;
    std::memcpy(&operation.weight_, in, sizeof operation.weight_);
    std::memcpy(&operation.dataLength_, in + sizeof operation.weight_, 2);
    return operation;
}

}  // namespace Ostrel
