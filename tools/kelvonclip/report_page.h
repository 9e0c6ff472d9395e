// The page that `report` writes: what is known of a clip, as one HTML document that needs nothing else.
//
// Its size is bounded, whatever the clip holds (docs/tool.md, "The page of a clip"); what is left out is said in it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "clip_view.h"
#include "findings.h"
#include "inspect/check.h"
#include "sound_overview.h"
#include "timecode_overview.h"

namespace tool {

// Subchannels that are drawn at most, of all tracks together. A track is drawn as a whole or not at all.
constexpr std::size_t MOST_WAVEFORMS = 64;

// What was seen of a track while its units were checked.
struct TrackOverview {
    std::optional<SoundOverview> sound;        // of an audio track that is drawn
    std::optional<TimecodeOverview> timecode;  // of a timecode track
};

struct ReportContent {
    ClipView const& clip;
    CheckLevel const& level;
    KelvonClip::inspect::Report const& checked;
    std::vector<TrackOverview> const& tracks;  // of the clip
    std::uint64_t made_at;                     // seconds since 1970
};

std::string reportPage(ReportContent const& content);

}  // namespace tool
