// Where the timecode of a track does not count on.
//
// Memory does not grow with the track. Threads: one user at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include <kelvonclip/kelvon_std.h>
#include <kelvonclip/kelvon_timecode.h>

#include "inspect/essence.h"

namespace tool {

struct TimecodeBreak {
    std::uint64_t unit;                     // the first one behind it
    KelvonClip::KTimecode expected, found;  // `found` is undefined if the unit has none
};

class TimecodeOverview {
  public:
    // Breaks that are kept; the others are counted.
    static constexpr std::size_t MOST_BREAKS = 100;

    explicit TimecodeOverview(KelvonClip::VideoFrequency clip_frequency) : frequency(clip_frequency) {}

    // The bytes of a unit, which comes after all that were seen before.
    void look(std::uint64_t unit, KelvonClip::inspect::UnitBytes bytes);

    // The first and the last one that was seen; undefined if there is none.
    KelvonClip::KTimecode first() const { return first_seen; }
    KelvonClip::KTimecode last() const { return last_seen; }
    std::vector<TimecodeBreak> const& breaks() const { return kept; }
    std::uint64_t breakCount() const { return break_count; }

  private:
    KelvonClip::VideoFrequency const frequency;
    std::uint64_t next_unit = 0;
    std::optional<std::uint32_t> expected;  // absent if nothing is known of the unit before
    KelvonClip::KTimecode before, first_seen, last_seen;
    std::vector<TimecodeBreak> kept;
    std::uint64_t break_count = 0;
};

}  // namespace tool
