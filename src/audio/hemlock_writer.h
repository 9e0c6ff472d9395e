// HemlockWriter: writes continuous streams of samples, one for each subchannel, as the units of an audio track.
//
// Invariants
//   * All queues hold the same number of samples: the samples of a call are appended to all of them or to none.
//   * Units that could not be written are kept unchanged, UNITS_TOGETHER at most, until they are written. So units are
//     consecutive and no sample is lost.
// Threads: one caller at a time.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "audio/audio_track.h"
#include "audio/block_cutter.h"
#include "audio/stream_turn.h"
#include "clip/handle.h"
#include "foundation/kstring.h"
#include "platform/transfer_memory.h"

namespace KelvonClip {

class HemlockWriter {
  public:
    // The samples of one subchannel that are kept while units cannot be written: 30 seconds.
    static constexpr std::uint32_t MAX_WAITING = 30 * 48000;
    // Complete units are written with one request.
    static constexpr std::uint32_t UNITS_TOGETHER = 8;

    // Units are appended to the track. `block_words`: the first block word of each subchannel.
    HemlockWriter(AudioTrackShape const& track, std::vector<std::uint32_t> const& block_words,
                  std::shared_ptr<TrackUnits> track_units);

    // Appends n samples to every subchannel, from buffers[i] or silence if that is null, and writes all complete units.
    // If a unit cannot be written, its message is returned after all samples have been appended, and a later call tries
    // that unit again. "Out of memory" if the samples cannot be stored. "Too many samples wait to be written" if they
    // would be more than MAX_WAITING while a unit cannot be written: then none are taken, except by a call during which
    // the first unit fails, which has taken those up to that unit.
    KString write(std::int32_t const* const* buffers, std::uint32_t n);

    // Writes the remaining samples, and pads the last unit with silence. Stops at the first error.
    KString finish();

    std::uint32_t handle() const { return handle_object.number(); }
    StreamTurn& turn() { return stream_turn; }
    bool belongsToThisProcess() const { return handle_object.belongsToThisProcess(); }
    std::uint32_t subchannelCount() const { return static_cast<std::uint32_t>(cutters.size()); }
    std::uint32_t samplesWaiting() const { return cutters.empty() ? 0 : cutters.front().samples().count(); }

  private:
    bool appendSamples(std::int32_t const* const* buffers, std::uint32_t offset, std::uint32_t n);
    bool roomFor(std::uint32_t n) const;
    bool makeUnit();
    KString writeUnits();
    KString writeComplete();
    KString writeNext(std::uint32_t count);

    HandleObject handle_object;
    StreamTurn stream_turn;
    std::shared_ptr<TrackUnits> const units;
    std::uint32_t const block_size;  // bytes
    std::vector<hemlock::BlockCutter> cutters;
    std::uint32_t const unit_size;  // bytes
    platform::TransferMemory const complete_units;
    std::uint32_t made = 0, written = 0;  // of the units there
    std::uint64_t next_unit;
};

}  // namespace KelvonClip
