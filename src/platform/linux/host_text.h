// Text between the library (UTF-16 at this seam) and the host (bytes).
#pragma once

#include <string>
#include <string_view>

namespace KelvonClip::platform {

// The host's text for an errno value; empty for 0. In the locale's language, when the caller's program chose one.
std::u16string hostErrorText(int code);

// A file name as the host takes it: UTF-8, with surrogate pairs combined. A surrogate that stands alone becomes its
// three bytes, so that every name has a counterpart and no two names share one.
std::string hostFileName(std::u16string_view name);

}  // namespace KelvonClip::platform
