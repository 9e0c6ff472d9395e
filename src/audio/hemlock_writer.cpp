#include "audio/hemlock_writer.h"

#include <algorithm>
#include <cstddef>
#include <new>
#include <utility>

#include "foundation/kassert.h"
#include "foundation/string_stash.h"

namespace KelvonClip {

namespace {

// Long calls are processed in steps, so that memory use does not depend on the length of a call.
constexpr std::uint32_t STEP_SAMPLES = 16384;

constexpr char const* TOO_MANY_WAIT = "Too many samples wait to be written";

}  // namespace

HemlockWriter::HemlockWriter(AudioTrackShape const& track, std::vector<std::uint32_t> const& block_words,
                             std::shared_ptr<TrackUnits> track_units)
    : units(std::move(track_units)), block_size(track.blockSize()), unit_size(track.unitSize()),
      complete_units(platform::allocateTransferMemory(std::size_t{UNITS_TOGETHER} * unit_size)),
      next_unit(units->lengthInUnits()) {
    cutters.reserve(track.subchannel_count);
    for (std::uint32_t i = 0; i < track.subchannel_count; ++i)
        cutters.emplace_back(track.frequency, i, block_words[i]);
}

KString HemlockWriter::write(std::int32_t const* const* buffers, std::uint32_t n) {
    // The disk may work again, which makes room.
    if (made > written && !roomFor(n))
        if (KString error = writeUnits(); !error.empty() && !roomFor(n)) return TOO_MANY_WAIT;
    for (std::uint32_t done = 0; done < n;) {
        std::uint32_t const step = std::min(n - done, STEP_SAMPLES);
        if (!appendSamples(buffers, done, step)) return OUT_OF_MEMORY;
        done += step;
        KString error;
        try {
            error = writeUnits();
        } catch (std::bad_alloc const&) {
            continue;  // the samples are kept; units wait until there is memory to write them
        }
        if (error.empty()) continue;
        if (!roomFor(n - done)) return TOO_MANY_WAIT;
        if (!appendSamples(buffers, done, n - done)) return OUT_OF_MEMORY;
        return error;
    }
    return {};
}

bool HemlockWriter::roomFor(std::uint32_t n) const { return std::uint64_t{samplesWaiting()} + n <= MAX_WAITING; }

// Appends to all subchannels, or to none if there is not enough memory.
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

// Makes one block for each subchannel; false if there are not enough samples.
bool HemlockWriter::makeUnit() {
    std::byte* block = complete_units.get() + std::size_t{made} * unit_size;
    for (std::size_t i = 0; i < cutters.size(); ++i, block += block_size) {
        bool const complete = cutters[i].makeBlock(block);
        if (i == 0 && !complete) return false;
        kassert(complete, "seq_write", __LINE__, "made");
    }
    return !cutters.empty();
}

KString HemlockWriter::writeUnits() {
    for (;;) {
        while (made < UNITS_TOGETHER && makeUnit())
            ++made;
        if (made == 0) break;
        if (KString error = writeComplete(); !error.empty()) return error;
        made = written = 0;
    }
    // Less than a block is left. Moving it to the front keeps the queues in the processor's cache when calls are short.
    for (auto& cutter : cutters)
        cutter.samples().moveToFront();
    return {};
}

// If the units cannot be written together, they are written one by one, so that those before the fault are.
KString HemlockWriter::writeComplete() {
    if (made - written > 1 && writeNext(made - written).empty()) return {};
    while (written < made)
        if (KString error = writeNext(1); !error.empty()) return error;
    return {};
}

KString HemlockWriter::writeNext(std::uint32_t count) {
    if (next_unit + count > UINT32_MAX) return KString("Too many units");
    std::byte const* const from = complete_units.get() + std::size_t{written} * unit_size;
    KString error = units->write(static_cast<std::uint32_t>(next_unit), count, from);
    if (!error.empty()) return error;
    written += count;
    next_unit += count;
    return {};
}

// KEEP: a recording that ends exactly at the end of a block has no fade-out.
KString HemlockWriter::finish() {
    if (KString error = writeUnits(); !error.empty()) return error;
    for (auto& cutter : cutters)
        cutter.closeLastBlock();
    return writeUnits();
}

}  // namespace KelvonClip
