// What the store tests share: a slice configuration on a directory, and the bytes of a file to compare.
#pragma once

#include <fstream>
#include <sstream>
#include <string>

#include "SarvaneInternalConfig.h"
#include "core/Text.h"

namespace SarvaneTest {

inline Vantu::SmartPtr<Ostrel::SarvaneInternalConfig> SliceConfigIn(const std::string& dir, uint16_t physical = 1,
                                                                     uint16_t mirror = 1, uint16_t slice = 1) {
    Ostrel::SarvaneConfig config(physical, mirror, slice);
    config.SetIndexFilesPath(Vantu::FromUtf8(dir));
    return Vantu::SmartPtr<Ostrel::SarvaneInternalConfig>(new Ostrel::SarvaneInternalConfig(config));
}

// Empty for a file that doesn't exist.
inline std::string FileBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream bytes;
    bytes << in.rdbuf();
    return bytes.str();
}

}  // namespace SarvaneTest
