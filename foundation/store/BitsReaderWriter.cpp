#include "store/BitsReaderWriter.h"

namespace VantuCompression {

void BitsReaderWriter::Fetch() {
    unsigned char byte;
    stream_->GetExact(&byte, 1);
    held_ = (held_ << 8) | byte;
    heldCount_ += 8;
}

void BitsReaderWriter::FlushBytes() {
    unsigned int count = outCount_;
    outCount_ = 0;
    if (count != 0) stream_->PutExact(out_, count);
}

}  // namespace VantuCompression
