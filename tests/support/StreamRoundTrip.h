// Writes a value through the stream layer into memory and reads it back into a fresh object.
#pragma once

#include "file/BinaryStream.h"
#include "file/BinaryStreamMemoryBuffer.h"

namespace SarvaneTest {

template <class T>
T RoundTrip(const T& value) {
    VantuFile::MemoryBuffer memory;
    Vantu::BinaryStreamT<unsigned int> out(memory);
    out << value;
    T back;
    Vantu::BinaryStreamT<unsigned int> in(memory);
    in >> back;
    return back;
}

}  // namespace SarvaneTest
