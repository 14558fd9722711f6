#include "SarvaneConfigValues.h"

#include <algorithm>
#include <sys/stat.h>

#include "SarException.h"
#include "core/Text.h"

namespace Ostrel {

uint32_t SarKilobytesToBytes(uint32_t kilobytes, uint32_t max) {
    return static_cast<uint32_t>(std::min<uint64_t>(uint64_t{kilobytes} << 10, max));
}

void SarCheckIndexPath(const std::u16string& path) {
    struct stat info;
    if (stat(SarNarrowPath(path).c_str(), &info) == 0 && !S_ISDIR(info.st_mode))
        throw SarInvalidIndexPath(SAR_MESSAGE(15, path));
}

std::string SarNarrowPath(const std::u16string& path) { return Vantu::ToUtf8(path); }

}  // namespace Ostrel
