#include "sound_overview.h"

#include <algorithm>
#include <utility>

#include "foundation/load_store.h"

namespace tool {

using namespace KelvonClip;
using inspect::AudioUnit;
using inspect::MOST_SUBCHANNELS;

std::size_t soundColumn(std::uint64_t unit, std::uint64_t units) {
    // The smallest audio unit has 8192 bytes, so `unit` has fewer than 52 bits.
    return static_cast<std::size_t>(unit * SOUND_COLUMNS / units);
}

SoundOverview::SoundOverview(TrackFormat const& track_format, VideoFrequency clip_frequency, std::uint64_t unit_count)
    : format(track_format), frequency(clip_frequency), count(unit_count),
      sounds(std::min<std::size_t>(track_format.subchannel_count, MOST_SUBCHANNELS)) {}

void SoundOverview::look(std::uint64_t unit, inspect::UnitBytes bytes) {
    if (unit < next_unit || unit >= count) return;  // the file has changed since its length was read
    skipTo(unit);
    AudioUnit const now = inspect::readAudioUnit(format, frequency, bytes);
    hemlock::Cadence const& cadence = hemlock::cadenceOf(frequency);
    std::array<SoundMarks, MOST_SUBCHANNELS> marks{};
    for (std::size_t i = 0; i < sounds.size() && i < now.count; ++i) {
        auto const& before = previous[i];
        auto const& block = now.blocks[i];
        bool const faded_out = before && before->fade_out;
        if (faded_out) marks[i] |= FADE_OUT_BEFORE;
        if (!block) {
            if (before || unit == 0) marks[i] |= NO_SOUND;
            setSilent(sounds[i], unit, unit + 1);
            continue;
        }
        if (block->fade_in) marks[i] |= FADE_IN;
        if (before && !faded_out && !block->fade_in && !inspect::isNextBlock(*before, *block, frequency))
            marks[i] |= BROKEN_CHAIN;
        std::byte const* const from = bytes.data() + i * (format.stored_unit_size / format.subchannel_count);
        addSamples(sounds[i], unit, from + hemlock::block::SAMPLES_AT, cadence.sampleCount(block->phase));
    }
    addBoundary(unit, marks);
    previous = now.blocks;
    next_unit = unit + 1;
}

void SoundOverview::finish() {
    skipTo(count);
    std::array<SoundMarks, MOST_SUBCHANNELS> marks{};
    for (std::size_t i = 0; i < sounds.size(); ++i)
        if (previous[i] && previous[i]->fade_out) marks[i] = FADE_OUT_BEFORE;
    addBoundary(count, marks);
}

// The units up to `unit` were not read.
void SoundOverview::skipTo(std::uint64_t unit) {
    if (next_unit >= unit) return;
    std::array<SoundMarks, MOST_SUBCHANNELS> marks{};
    for (std::size_t i = 0; i < sounds.size(); ++i) {
        if (previous[i] && previous[i]->fade_out) marks[i] |= FADE_OUT_BEFORE;
        if (previous[i] || next_unit == 0) marks[i] |= NO_SOUND;
        setSilent(sounds[i], next_unit, unit);
    }
    addBoundary(next_unit, marks);
    previous = {};
    next_unit = unit;
}

void SoundOverview::addBoundary(std::uint64_t unit, std::array<SoundMarks, MOST_SUBCHANNELS> const& marks) {
    std::uint32_t done = 0;
    for (std::size_t i = 0; i < sounds.size(); ++i) {
        if (marks[i] == 0) continue;
        for (std::size_t mark = 0; mark < SOUND_MARKS; ++mark)
            if ((marks[i] >> mark & 1) != 0) sounds[i].marks[mark].set(soundColumn(unit, count));
        if ((done >> i & 1) != 0) continue;
        SoundBoundary boundary{unit, marks[i], 0};
        for (std::size_t k = i; k < sounds.size(); ++k)
            if (marks[k] == marks[i]) boundary.subchannels |= 1u << k;
        done |= boundary.subchannels;
        ++boundary_count;
        if (kept.size() < MOST_BOUNDARIES) kept.push_back(boundary);
    }
}

// Unit u of n and sample s of m lie in column (u + s / m) * SOUND_COLUMNS / n.
void SoundOverview::addSamples(SubchannelSound& sound, std::uint64_t unit, std::byte const* samples,
                               std::uint32_t samples_count) {
    std::uint64_t const at = unit * SOUND_COLUMNS, inside = at % count;
    std::uint64_t column = at / count;
    std::uint32_t const m = samples_count;
    for (std::uint32_t s = 0, k = 1; s < m; ++k, ++column) {
        // The next column begins with the first sample for which inside * m + s * SOUND_COLUMNS >= k * count * m.
        std::uint64_t const end = (k * count * m - inside * m + SOUND_COLUMNS - 1) / SOUND_COLUMNS;
        auto const after = static_cast<std::uint32_t>(std::min<std::uint64_t>(end, m));
        std::int32_t least = std::numeric_limits<std::int32_t>::max(), most = std::numeric_limits<std::int32_t>::min();
        for (; s < after; ++s) {
            auto const sample = static_cast<std::int32_t>(loadLE32(samples + std::size_t{s} * sizeof(std::int32_t)));
            least = std::min(least, sample);
            most = std::max(most, sample);
        }
        SubchannelSound::Range& range = sound.columns[static_cast<std::size_t>(column)];
        range.least = std::min(range.least, least);
        range.most = std::max(range.most, most);
        auto const distance = static_cast<std::uint64_t>(std::max(-std::int64_t{least}, std::int64_t{most}));
        if (least <= most && distance > sound.greatest) sound.greatest = distance, sound.greatest_unit = unit;
    }
}

void SoundOverview::setSilent(SubchannelSound& sound, std::uint64_t first_unit, std::uint64_t after) const {
    std::size_t const end = std::max(soundColumn(after, count), soundColumn(first_unit, count) + 1);
    for (std::size_t column = soundColumn(first_unit, count); column < end && column < SOUND_COLUMNS; ++column)
        sound.silent.set(column);
}

}  // namespace tool
