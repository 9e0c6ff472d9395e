#include "audio/hemlock_reader.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "foundation/kassert.h"

namespace KelvonClip {

HemlockReader::HemlockReader(AudioTrackShape const& track, std::shared_ptr<TrackUnits> units)
    : cadence(hemlock::cadenceOf(track.frequency)), total_samples(cadence.totalSamples(track.length_in_fields)),
      words_per_block(static_cast<std::uint32_t>(track.blockSize() / sizeof(std::int32_t))),
      read_ahead(std::move(units), track.unitSize()),
      streams(track.subchannel_count, hemlock::SubchannelStream(cadence)) {}

std::uint64_t HemlockReader::samplesRemaining() const {
    std::uint64_t const delivered = samples_delivered;
    return total_samples - std::min(total_samples, delivered);
}

void HemlockReader::seek(std::uint64_t sample) {
    auto const place = cadence.unitOfSample(sample);
    read_ahead.restartAt(place.unit);
    for (auto& stream : streams)
        stream.restart(place.drift);
    available = 0;
    to_skip = static_cast<std::uint32_t>(sample - place.first_sample);
    samples_delivered = next_sample = sample;
}

KString HemlockReader::read(std::int32_t* const* buffers, std::uint32_t n) {
    std::uint32_t skipped = 0, delivered = 0;
    KString error = take(nullptr, to_skip, skipped);
    to_skip -= skipped;
    if (error.empty()) error = take(buffers, n, delivered);
    next_sample += delivered;
    if (error.empty()) samples_delivered += n;
    return error;
}

// Takes n samples of every stream, and drops those without a buffer. Counts in `taken` what was taken before an error.
KString HemlockReader::take(std::int32_t* const* buffers, std::uint32_t n, std::uint32_t& taken) {
    while (taken < n) {
        if (available == 0) {
            if (KString error = fetch(); !error.empty()) return error;
        }
        std::uint32_t const to_do = std::min(available, n - taken);
        if (!kassert(to_do > 0, "seq_read", __LINE__, "to_do > 0")) return KString("Internal error");
        for (std::size_t i = 0; i < streams.size(); ++i) {
            bool const wanted = buffers != nullptr && buffers[i] != nullptr;
            if (!streams[i].take(wanted ? buffers[i] + taken : nullptr, to_do)) return KString("Internal error");
        }
        available -= to_do;
        taken += to_do;
    }
    return {};
}

// Passes the blocks of the next unit to the streams.
KString HemlockReader::fetch() {
    hemlock::UnitReadAhead::Unit unit{};
    // Reserve memory first, so that nothing can fail after some of the unit's blocks have been passed on.
    for (auto& stream : streams)
        stream.reserveBlock();
    if (KString error = read_ahead.next(unit); !error.empty()) return error;
    std::int32_t* words = unit.words;
    available = UINT32_MAX;
    for (auto& stream : streams) {
        stream.feed(hemlock::decode(words, cadence, unit.index), *unit.open_blocks);
        available = std::min(available, stream.available());
        words += words_per_block;
    }
    return {};
}

}  // namespace KelvonClip
