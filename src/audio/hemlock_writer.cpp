#include "audio/hemlock_writer.h"

#include <algorithm>
#include <cstddef>
#include <new>

#include "foundation/kassert.h"

namespace KelvonClip {

namespace {

// A call is worked off in steps, so that the memory it needs does not grow with it while units can be written.
constexpr std::uint32_t STEP_SAMPLES = 16384;

}  // namespace

HemlockWriter::HemlockWriter(AudioTrackShape const& track, std::vector<std::uint32_t> const& block_words,
                             std::shared_ptr<TrackUnits> track_units)
    : units(std::move(track_units)), block_size(track.blockSize()),
      unit(platform::allocateTransferMemory(track.unitSize())), next_unit(units->lengthInUnits()) {
    cutters.reserve(track.subchannel_count);
    for (std::uint32_t i = 0; i < track.subchannel_count; ++i)
        cutters.emplace_back(track.frequency, i, block_words[i]);
}

KString HemlockWriter::write(std::int32_t const* const* buffers, std::uint32_t n) {
    for (std::uint32_t done = 0; done < n;) {
        std::uint32_t const step = std::min(n - done, STEP_SAMPLES);
        if (!appendSamples(buffers, done, step)) return KString("Out of memory");
        done += step;
        if (KString error = writeUnits(); !error.empty()) {
            return appendSamples(buffers, done, n - done) ? error : KString("Out of memory");
        }
    }
    return {};
}

// For all subchannels or, when memory cannot hold the samples, for none.
bool HemlockWriter::appendSamples(std::int32_t const* const* buffers, std::uint32_t offset, std::uint32_t n) {
    try {
        for (auto& cutter : cutters)
            cutter.samples().reserve(n);
    } catch (std::bad_alloc const&) {
        return false;
    }
    for (std::size_t i = 0; i < cutters.size(); ++i) {
        cutters[i].samples().append(buffers[i] == nullptr ? nullptr : buffers[i] + offset, n);
    }
    std::uint32_t const n0 = samplesWaiting();
    for (auto const& cutter : cutters)
        kassert(n0 == cutter.samples().count(), "seq_write", __LINE__, "n0 == n");
    return true;
}

// One block of each subchannel, side by side; false while the first has too few samples for one.
bool HemlockWriter::makeUnit() {
    std::byte* block = unit.get();
    for (std::size_t i = 0; i < cutters.size(); ++i, block += block_size) {
        bool const made = cutters[i].makeBlock(block);
        if (i == 0 && !made) return false;
        kassert(made, "seq_write", __LINE__, "made");
    }
    return !cutters.empty();
}

KString HemlockWriter::writeUnits() {
    while (unit_pending || makeUnit()) {
        unit_pending = true;
        if (next_unit >= UINT32_MAX) return KString("Too many units");
        if (KString error = units->write(static_cast<std::uint32_t>(next_unit), unit.get()); !error.empty())
            return error;
        unit_pending = false;
        ++next_unit;
    }
    // Less than a block is left: moved to the front, the samples of small calls stay in the processor's cache.
    for (auto& cutter : cutters)
        cutter.samples().moveToFront();
    return {};
}

// KEEP: a recording that ends exactly where a block does ends without a fade-out.
KString HemlockWriter::finish() {
    if (KString error = writeUnits(); !error.empty()) return error;
    for (auto& cutter : cutters)
        cutter.closeLastBlock();
    return writeUnits();
}

}  // namespace KelvonClip
