// The sample stream of one subchannel: decoded blocks go in, one after the other, and any number of samples comes out.
//
// Where a recording stopped or started, the samples next to the join are faded, and the join is where the stream is
// brought back to the nominal 48 kHz count: once it has run two whole samples ahead or behind, one sample is left out
// or given twice. Material without a join is never altered.
//
// Invariants
//   * Samples stay in the unit's buffer: fades are done in place, and what is buffered is one range for each block.
//     `open_blocks` tells the buffer's owner how many of its blocks are still wanted.
//   * `drift` is ten times the samples that were fed, less the nominal count of the same units.
// Threads: one caller at a time.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "audio/hemlock_block.h"

namespace KelvonClip::hemlock {

// The range of samples that a block adds to its stream, given the stream's drift in tenths of a sample: faded where the
// block asks for it, one sample shorter or longer at a join when the drift has reached two samples.
std::span<std::int32_t> fadeAndCorrect(DecodedBlock const& decoded, std::int64_t drift);

class SubchannelStream {
  public:
    explicit SubchannelStream(Cadence const& its_cadence) : cadence(its_cadence) {}

    // Makes sure that the next block finds room, so that feeding it cannot fail.
    void reserveBlock();
    // Takes in the block of the next unit, for which room has been made. Its samples must stay where they are until
    // `open_blocks`, which this call raises by one, has been lowered again.
    void feed(DecodedBlock const& decoded, std::uint32_t& open_blocks);

    // Moves the next `num_samples` samples to `to`, or drops them when `to` is null; false, after an assertion line,
    // when so many are not there.
    bool take(std::int32_t* to, std::uint32_t num_samples);

    std::uint32_t available() const { return buffered_sample_count; }
    std::int64_t driftInTenths() const { return drift; }
    // Blocks that did not continue the one before them. Nothing follows from it but what the block's own flags ask for.
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
    std::optional<BlockHeader> previous;  // absent at the start and after an invalid block
    bool first_block = true;
    std::uint64_t discontinuity_count = 0;
    std::vector<Buffered> buffered;  // from `front` on
    std::size_t front = 0;
    std::uint32_t buffered_sample_count = 0;
};

}  // namespace KelvonClip::hemlock
