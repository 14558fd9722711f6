// Rules that every configuration record applies: kilobyte sizes, index paths and their narrow form.
// Pure functions: any thread.
#pragma once

#include <cstdint>
#include <string>

namespace Ostrel {

// Bytes for a setter's kilobytes, computed in 64 bits and clamped to `max`, so that no argument wraps
// around to a small or zero size.
uint32_t SarKilobytesToBytes(uint32_t kilobytes, uint32_t max = UINT32_MAX);

// Throws SarInvalidIndexPath (message 15, with the path) when `path` exists and is not a directory.
// A path that does not exist yet is accepted: Start creates it.
void SarCheckIndexPath(const std::u16string& path);

// The narrow form of a wide path, through which all file work goes (UTF-8).
std::string SarNarrowPath(const std::u16string& path);

}  // namespace Ostrel
