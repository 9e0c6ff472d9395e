// Divides the samples of one subchannel into blocks. The number of samples in a block follows from its place in the
// cadence. The first block of a recording is marked for a fade-in. The last one is padded with silence and marked for a
// fade-out, unless the recording ends exactly at the end of a block.
//
// Threads: one caller at a time.
#pragma once

#include <kelvonclip/kelvon_std.h>

#include <cstddef>
#include <cstdint>

#include "audio/hemlock_block.h"
#include "audio/sample_queue.h"

namespace KelvonClip::hemlock {

// The samples in a block of this rate and phase; 0, after an assertion line, for an unknown rate.
std::uint32_t samplesInBlock(VideoFrequency frequency, std::uint8_t phase);

class BlockCutter {
  public:
    // `first_block_word`: the block word of the first block.
    BlockCutter(VideoFrequency its_frequency, std::uint32_t subchannel, std::uint32_t first_block_word);

    SampleQueue& samples() { return queue; }
    SampleQueue const& samples() const { return queue; }

    // Writes the next block, of `toAudioSize` bytes, to `to`. False, with nothing changed, if there are not enough
    // samples for it.
    bool makeBlock(std::byte* to);

    // Pads an incomplete last block with silence and marks it for a fade-out.
    void closeLastBlock();

  private:
    VideoFrequency const frequency;
    Cadence const& cadence;
    std::uint32_t const block_size;  // bytes
    std::uint32_t const subchannel_index;
    std::uint32_t block_word;
    std::uint8_t phase = 0;
    bool fade_in_pending = true;
    bool fade_out_pending = false;
    SampleQueue queue;
};

}  // namespace KelvonClip::hemlock
