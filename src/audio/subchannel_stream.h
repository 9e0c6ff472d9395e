// The sample stream of one subchannel: decoded blocks are added in order, and any number of samples can be taken.
//
// A join is where one recording ends or another starts. Samples next to a join are faded. Joins are also where drift
// from the nominal 48 kHz count is corrected: once the stream is two samples ahead or behind, one sample is dropped or
// repeated. Samples away from joins are never changed.
//
// Invariants
//   * Samples stay in the unit's buffer. Fades are applied in place; the stream stores one range for each block.
//     `open_blocks` tells the buffer's owner how many of its blocks are still in use.
//   * `drift` is ten times the number of samples added, minus the nominal number for the same units (in tenths).
// Threads: one caller at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "audio/hemlock_block.h"

namespace KelvonClip::hemlock {

// The samples that a block adds to its stream: faded as its flags require, and at a join one sample shorter or longer
// if `drift` (in tenths of a sample) has reached two samples.
std::span<std::int32_t> fadeAndCorrect(DecodedBlock const& decoded, std::int64_t drift);

class SubchannelStream {
  public:
    explicit SubchannelStream(Cadence const& its_cadence) : cadence(its_cadence) {}

    // Gives up what is buffered. The next block follows material with this drift, in tenths of a sample.
    void restart(std::int64_t drift_in_tenths);

    // Reserves memory for the next block, so that feed cannot fail.
    void reserveBlock();
    // Adds the block of the next unit, after reserveBlock. This call increments `open_blocks`; the block's samples must
    // stay in place until the stream has decremented it again.
    void feed(DecodedBlock const& decoded, std::uint32_t& open_blocks);

    // Copies the next `num_samples` samples to `to`, or drops them if `to` is null. False, after an assertion line, if
    // fewer are available.
    bool take(std::int32_t* to, std::uint32_t num_samples);

    std::uint32_t available() const { return buffered_sample_count; }
    std::int64_t driftInTenths() const { return drift; }
    // The number of blocks that did not continue the previous one. For information only: the samples are not affected.
    std::uint64_t discontinuities() const { return discontinuity_count; }

  private:
    struct Buffered {
        std::int32_t const* at;
        std::uint32_t count;
        std::uint32_t* open_blocks;
    };

    void noteContinuity(DecodedBlock const& decoded);

    Cadence const& cadence;
    std::int64_t drift = 0;
    std::optional<BlockHeader> previous;  // none at the start and after an invalid block
    bool first_block = true;
    std::uint64_t discontinuity_count = 0;
    std::vector<Buffered> buffered;  // from `front` on
    std::size_t front = 0;
    std::uint32_t buffered_sample_count = 0;
};

}  // namespace KelvonClip::hemlock
