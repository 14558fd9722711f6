// UTF-8 <-> UTF-16 conversion. Wide strings are std::u16string throughout the project.
// Pure functions: any thread.
#pragma once

#include <string>
#include <string_view>

namespace Vantu {

// Invalid sequences become U+FFFD; the conversion never fails.
std::u16string FromUtf8(std::string_view text);
std::string ToUtf8(std::u16string_view text);

}  // namespace Vantu
