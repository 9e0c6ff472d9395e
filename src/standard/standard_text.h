// The texts of video standards, for the library itself. The exported functions return a neutral value if memory runs
// out; a clip's header needs to know the difference.
#pragma once

#include <string_view>

#include <kelvonclip/kelvon_std.h>

#include "foundation/kstring.h"

namespace KelvonClip {

// Such as "1080p 25Hz"; empty for a value that is no standard. Throws std::bad_alloc.
KString textOf(VideoStandard standard);
// The inverse; `none` for any other text.
VideoStandard standardWithText(std::string_view text);

}  // namespace KelvonClip
