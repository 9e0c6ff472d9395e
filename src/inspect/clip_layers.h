// The structure of a clip: its header and the stacks of its tracks, read without trusting them. What is wrong with them
// goes to the findings; each container is walked once, however many tracks stand on it.
//
// Threads: one user at a time. Reading waits alertably.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "clip/clip_header.h"
#include "clip/track_format.h"
#include "inspect/budget.h"
#include "inspect/finding.h"
#include "inspect/layer.h"

namespace KelvonClip::inspect {

struct TrackLayers {
    KString format_name;
    TrackFormat format;
    std::shared_ptr<Layer const> units;  // the outermost level, which holds the units; null if it could not be built
};

struct ClipLayers {
    std::shared_ptr<MetaObject const> header;  // null if there is none to be used
    VideoStandard standard{};
    std::vector<TrackLayers> tracks;  // in header order
};

// `path`: of the clip file, for the files that its header names.
ClipLayers readLayers(std::shared_ptr<VFileObject> const& clip_file, KString const& path, Budget& budget,
                      Findings& findings);

}  // namespace KelvonClip::inspect
