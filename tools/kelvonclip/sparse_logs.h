// The sparse containers that the tracks of a clip stand on.
#pragma once

#include <vector>

#include "clip_view.h"
#include "inspect/layer.h"

namespace tool {

// Each container once, in the order of the tracks.
std::vector<KelvonClip::inspect::Layer const*> sparseLayers(ClipView const& clip);

}  // namespace tool
