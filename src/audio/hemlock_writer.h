// HemlockWriter: turns continuous streams of samples, one for each subchannel, into the units of an audio track.
//
// Invariants
//   * All subchannels hold the same number of samples: a call's samples are taken in for all of them or for none.
//   * A unit that could not be written is kept as it was made, and nothing is made after it until it is written; so
//     units are consecutive and no sample is lost.
// Threads: one caller at a time.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "audio/audio_track.h"
#include "audio/block_cutter.h"
#include "clip/handle.h"
#include "foundation/kstring.h"
#include "platform/transfer_memory.h"

namespace KelvonClip {

class HemlockWriter {
  public:
    // The first unit goes behind the units that the track has now. `block_words` has one start value for each
    // subchannel.
    HemlockWriter(AudioTrackShape const& track, std::vector<std::uint32_t> const& block_words,
                  std::shared_ptr<TrackUnits> track_units);

    // Takes in n samples for every subchannel, from buffers[i] or, where that is null, silence, and writes the units
    // that are complete. The message of a unit that cannot be written ends the writing but not the taking in; a later
    // call goes on with that unit. "Out of memory" when the samples cannot be kept.
    KString write(std::int32_t const* const* buffers, std::uint32_t n);

    // Writes what is there, the last unit filled up with silence. Stops at the first message.
    KString finish();

    std::uint32_t handle() const { return handle_object.number(); }
    std::uint32_t subchannelCount() const { return static_cast<std::uint32_t>(cutters.size()); }
    std::uint32_t samplesWaiting() const { return cutters.empty() ? 0 : cutters.front().samples().count(); }

  private:
    bool appendSamples(std::int32_t const* const* buffers, std::uint32_t offset, std::uint32_t n);
    bool makeUnit();
    KString writeUnits();

    HandleObject handle_object;
    std::shared_ptr<TrackUnits> const units;
    std::uint32_t const block_size;  // bytes
    std::vector<hemlock::BlockCutter> cutters;
    platform::TransferMemory const unit;
    bool unit_pending = false;  // `unit` is complete and not written
    std::uint64_t next_unit;
};

}  // namespace KelvonClip
