#include "sparse_logs.h"

#include <algorithm>

namespace tool {

using KelvonClip::inspect::Layer;

std::vector<Layer const*> sparseLayers(ClipView const& clip) {
    std::vector<Layer const*> found;
    for (TrackView const& view : clip.tracks())
        for (Layer const* layer = view.layer.get(); layer != nullptr; layer = layer->below.get())
            if (layer->isSparse() && std::ranges::find(found, layer) == found.end()) found.push_back(layer);
    return found;
}

}  // namespace tool
