// What the units of an audio track sound like, in as much as fits on a page: the least and the greatest sample of each
// of a fixed number of columns, and the boundaries between recordings.
//
// Memory does not grow with the track. Threads: one user at a time.
#pragma once

#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <vector>

#include "audio/hemlock_block.h"
#include "clip/track_format.h"
#include "inspect/essence.h"

namespace tool {

// Columns of a picture, and the column at which a unit of `units` begins. A unit has more samples than a picture has
// columns, so each column has samples.
constexpr std::size_t SOUND_COLUMNS = 800;
std::size_t soundColumn(std::uint64_t unit, std::uint64_t units);

// What happens to a subchannel at the beginning of a unit.
enum SoundMark : std::uint8_t {
    FADE_OUT_BEFORE = 1,  // a recording has ended
    FADE_IN = 2,          // a recording begins
    BROKEN_CHAIN = 4,     // the block is not the one that follows, and nothing is faded
    NO_SOUND = 8,         // from here on blocks are invalid, or units are not stored: silence
};
constexpr std::size_t SOUND_MARKS = 4;
using SoundMarks = std::uint8_t;  // some of them

struct SoundBoundary {
    std::uint64_t unit;         // before which it lies; the track's length is its end
    SoundMarks marks;           // at least one
    std::uint32_t subchannels;  // a bit for each one that it concerns
};

struct SubchannelSound {
    struct Range {
        std::int32_t least = std::numeric_limits<std::int32_t>::max(), most = std::numeric_limits<std::int32_t>::min();

        bool seen() const { return least <= most; }
    };
    std::vector<Range> columns = std::vector<Range>(SOUND_COLUMNS);
    std::bitset<SOUND_COLUMNS> silent;  // a block of the column is invalid or was not read
    // For each mark, in the order of SoundMark, the columns at which it is. The last one is the track's end.
    std::array<std::bitset<SOUND_COLUMNS + 1>, SOUND_MARKS> marks;

    // The greatest distance from 0, up to 2^31, and the unit that has it first.
    std::uint64_t peak() const { return greatest; }
    std::uint64_t peakUnit() const { return greatest_unit; }

    std::uint64_t greatest = 0, greatest_unit = 0;
};

class SoundOverview {
  public:
    // Boundaries that are kept; the others are counted.
    static constexpr std::size_t MOST_BOUNDARIES = 100;

    // `units`: of the track, as stored. `format`: of an audio track.
    SoundOverview(KelvonClip::TrackFormat const& track_format, KelvonClip::VideoFrequency clip_frequency,
                  std::uint64_t unit_count);

    // The bytes of a unit, which comes after all that were seen before.
    void look(std::uint64_t unit, KelvonClip::inspect::UnitBytes bytes);
    // No unit follows.
    void finish();

    std::uint64_t units() const { return count; }
    std::vector<SubchannelSound> const& subchannels() const { return sounds; }
    std::vector<SoundBoundary> const& boundaries() const { return kept; }
    std::uint64_t boundaryCount() const { return boundary_count; }

  private:
    using Blocks = std::array<std::optional<KelvonClip::hemlock::BlockHeader>, KelvonClip::inspect::MOST_SUBCHANNELS>;

    void skipTo(std::uint64_t unit);
    void addBoundary(std::uint64_t unit, std::array<SoundMarks, KelvonClip::inspect::MOST_SUBCHANNELS> const& marks);
    void addSamples(SubchannelSound& sound, std::uint64_t unit, std::byte const* samples, std::uint32_t samples_count);
    void setSilent(SubchannelSound& sound, std::uint64_t first_unit, std::uint64_t after) const;

    KelvonClip::TrackFormat const format;
    KelvonClip::VideoFrequency const frequency;
    std::uint64_t const count;
    std::uint64_t next_unit = 0;
    Blocks previous{};  // of the unit before `next_unit`
    std::vector<SubchannelSound> sounds;
    std::vector<SoundBoundary> kept;
    std::uint64_t boundary_count = 0;
};

}  // namespace tool
