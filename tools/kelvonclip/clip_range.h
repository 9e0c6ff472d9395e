// Parts of a clip, by unit or by timecode.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include <kelvonclip/kelvon_timecode.h>

#include "clip_view.h"

namespace tool {

// The timecode of the clip's first frame, as its header or its timecode track says; undefined if neither does.
KelvonClip::KTimecode firstTimecode(ClipView const& clip);

struct UnitRange {
    std::uint32_t from = 0, to = 0;  // without `to`

    std::uint32_t count() const { return to - from; }
};

// The units of a track between two places, of which either may be empty: the begin and the end of the track. A place is
// the number of a unit, or a label; in a clip whose timecode is in a track it is looked for there, and the first unit
// that has it counts. A unit is in if any of its fields is. Throws a usage failure.
UnitRange unitRange(ClipView const& clip, std::uint64_t track, std::string const& from, std::string const& to);

// The timecodes of a timecode track.
class TrackTimecodes {
  public:
    TrackTimecodes(ClipView const& clip, std::uint64_t track);
    // Of a unit, from its bytes. Undefined if it has none.
    KelvonClip::KTimecode of(std::uint32_t unit, std::byte const* bytes) const;

  private:
    KelvonClip::VideoFrequency const frequency;
    KelvonClip::KTimecode first;  // defined if it counts for the whole track
};

}  // namespace tool
