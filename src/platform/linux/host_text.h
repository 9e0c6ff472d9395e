// Conversion of text between the library (UTF-16 at this seam) and the host (bytes).
#pragma once

#include <string>
#include <string_view>

namespace KelvonClip::platform {

// The text for an errno value, in the language of the program's locale; empty for 0.
std::u16string hostErrorText(int code);

// A file name as the host expects it: UTF-8, with surrogate pairs combined. A lone surrogate becomes the three bytes of
// its code point, so different names always stay different.
std::string hostFileName(std::u16string_view name);

}  // namespace KelvonClip::platform
