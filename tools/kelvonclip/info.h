// What a clip is and what is in it: what `info` prints of one clip.
#pragma once

#include "clip_view.h"
#include "json.h"

namespace tool {

// docs/tool.schema.json, "infoClip".
Json infoJson(ClipView const& clip);

}  // namespace tool
