#include "store/ZLibCompressedBuffer.h"

namespace VantuCompression {

void ThrowNotImplemented(const char* what) { throw Vantu::Exception::FromText(Vantu::FromUtf8(what)); }

}  // namespace VantuCompression
