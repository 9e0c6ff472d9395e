// Cuts the samples of one subchannel into blocks, each with the exact number of samples that its place in the cadence
// asks for. The first block of a recording asks for a fade-in; the last one is filled up with silence and asks for a
// fade-out, unless the recording ends exactly where a block does.
//
// Threads: one caller at a time.
#pragma once

#include <kelvonclip/kelvon_std.h>

#include <cstddef>
#include <cstdint>

#include "audio/hemlock_block.h"
#include "audio/sample_queue.h"

namespace KelvonClip::hemlock {

// Samples in a block of this rate and phase; for a value that is no rate an assertion line and 0.
std::uint32_t samplesInBlock(VideoFrequency frequency, std::uint8_t phase);

class BlockCutter {
  public:
    // `first_block_word` starts the count that goes into the blocks.
    BlockCutter(VideoFrequency its_frequency, std::uint32_t subchannel, std::uint32_t first_block_word);

    SampleQueue& samples() { return queue; }
    SampleQueue const& samples() const { return queue; }

    // Makes the next block at `to`, which has `toAudioSize` bytes; false, with nothing changed, while there are not
    // enough samples for it.
    bool makeBlock(std::byte* to);

    // Fills a block that has been begun with silence and marks it for a fade-out.
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
