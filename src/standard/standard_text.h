// The texts of video standards, for the library itself. The exported functions return a neutral value if memory runs
// out; a clip's header needs to know the difference.
#pragma once

#include <kelvonclip/kelvon_std.h>

#include "foundation/kstring.h"

namespace KelvonClip {

// Such as "1080p 25Hz"; empty for a value that is no standard. Throws std::bad_alloc.
KString textOf(VideoStandard standard);
// The inverse; `none` for any other text. Throws std::bad_alloc.
VideoStandard standardWithText(KString const& text);

}  // namespace KelvonClip
