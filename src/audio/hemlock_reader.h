// HemlockReader: reads an audio track as continuous streams of samples at 48 kHz, one for each subchannel.
//
// Units are read ahead (unit_read_ahead), and their blocks are passed to the subchannels' streams (subchannel_stream),
// from which the caller takes any number of samples.
//
// Invariants
//   * All streams have received the blocks of the same units. Their buffered counts differ only by repeated and dropped
//     samples.
//   * `available` is the smallest buffered count.
// Threads: one caller at a time.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "audio/audio_track.h"
#include "audio/hemlock_block.h"
#include "audio/stream_turn.h"
#include "audio/subchannel_stream.h"
#include "audio/unit_read_ahead.h"
#include "clip/handle.h"
#include "foundation/kstring.h"

namespace KelvonClip {

class HemlockReader {
  public:
    HemlockReader(AudioTrackShape const& track, std::shared_ptr<TrackUnits> units);

    // Copies the next n samples of subchannel i to buffers[i], or drops them if that is null. Empty on success. On an
    // error the samples before the failed unit have been copied and consumed, samplesRemaining is unchanged, and the
    // next call tries that unit again.
    KString read(std::int32_t* const* buffers, std::uint32_t n);

    // The next read begins at this sample of the track, counted as a track of one recording has them. What it gives
    // depends on the sample alone, not on what was read before. Waits for background reads, reads nothing.
    void seek(std::uint64_t sample);
    // The sample that the next read begins with.
    std::uint64_t position() const { return next_sample; }

    std::uint32_t handle() const { return handle_object.number(); }
    StreamTurn& turn() { return stream_turn; }
    std::uint32_t subchannelCount() const { return static_cast<std::uint32_t>(streams.size()); }
    std::uint64_t samplesRemaining() const;  // 0 at and beyond the end
    hemlock::SubchannelStream const& stream(std::uint32_t subchannel) const { return streams[subchannel]; }
    // For the end of the library: no further background reads are started. The reader is not used afterwards.
    void cancelReadAhead() { read_ahead.cancelQueued(); }

  private:
    KString take(std::int32_t* const* buffers, std::uint32_t n, std::uint32_t& taken);
    KString fetch();

    HandleObject handle_object;
    StreamTurn stream_turn;
    hemlock::Cadence const& cadence;
    std::uint64_t const total_samples;
    std::uint32_t const words_per_block;
    hemlock::UnitReadAhead read_ahead;  // owns the buffers that the streams point into
    std::vector<hemlock::SubchannelStream> streams;
    std::uint32_t available = 0;
    std::uint32_t to_skip = 0;  // samples between the beginning of a unit and the sample that was sought
    // Also read by other threads. They differ once a read has failed: what it had delivered before is not counted by
    // the first.
    std::atomic<std::uint64_t> samples_delivered = 0, next_sample = 0;
};

}  // namespace KelvonClip
