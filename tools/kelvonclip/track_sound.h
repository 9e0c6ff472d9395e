// The sound of an audio track of a clip: what the library's sequential reader gives (docs/audio.md), with fades at
// joins and silence where a block is missing.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "audio/hemlock_reader.h"
#include "clip_range.h"
#include "clip_view.h"

namespace tool {

// Threads: one at a time.
class TrackSound {
  public:
    // `subchannels`: which ones, in the order in which they are wanted; of those the track has, each once.
    TrackSound(ClipView const& clip, std::uint64_t track, UnitRange const& range,
               std::vector<std::uint32_t> const& subchannels);
    ~TrackSound();

    std::uint64_t frames() const { return total; }
    // Fills `samples` with the next frames, interleaved. Throws Failure that names the unit.
    // `frames`: not more than are left, and CHUNK at most.
    void read(std::int32_t* samples, std::size_t frames);

    static constexpr std::size_t CHUNK = 9600;

  private:
    class Units;

    ClipView const& clip;
    std::uint64_t const track;
    std::uint64_t total = 0;
    std::vector<std::int32_t> planar;           // CHUNK samples of each wanted subchannel
    std::vector<std::int32_t*> wanted;          // in the order of the caller
    std::vector<std::int32_t*> of_subchannels;  // of all; null if unwanted
    std::shared_ptr<Units> units;
    std::unique_ptr<KelvonClip::HemlockReader> reader;
};

}  // namespace tool
