// The stream errors: a transfer that moved fewer bytes than it had to, a bad seek, or bytes that do not
// decode. Values like every exception of the project: copy, clone and rethrow them on any thread.
#pragma once

#include <cstddef>
#include <string>

#include "core/Exception.h"

namespace Vantu {

VANTU_DECLARE_EXCEPTION(BinaryStreamException, Exception);
// PutExact: the target took fewer bytes than it was given.
VANTU_DECLARE_EXCEPTION(BinaryStreamPutEOFException, BinaryStreamException);
// GetExact: the source ended before the bytes asked for.
VANTU_DECLARE_EXCEPTION(BinaryStreamGetEOFException, BinaryStreamException);

// Raises E with the text given; the streams have no numbered messages of their own.
template <class E>
[[noreturn]] void ThrowStream(const std::string& text) {
    throw E(MessageInfo::FromText(FromUtf8(text)));
}

// Raises a plain Exception for an operation that a buffer doesn't offer (the write side of an input
// buffer, and so on); the text names the operation.
[[noreturn]] void ThrowNotImplemented(const char* what);

}  // namespace Vantu
