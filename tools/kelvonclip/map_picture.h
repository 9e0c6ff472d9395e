// The picture of a clip's file: a lane for each track, dark where its units are.
#pragma once

#include <string>

#include "clip_view.h"

namespace tool {

// An SVG element that stands by itself, with a title and a description. Works in light and dark surroundings.
std::string mapPicture(ClipView const& clip);

}  // namespace tool
