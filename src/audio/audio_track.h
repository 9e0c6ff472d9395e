// An audio track as seen by the sample streams: its properties, and its units behind an interface that tests replace.
#pragma once

#include <kelvonclip/kelvon_std.h>
#include <kelvonclip/track.h>

#include <cstdint>
#include <memory>

#include "foundation/kstring.h"

namespace KelvonClip {

struct AudioTrackShape {
    VideoFrequency frequency;
    std::uint32_t subchannel_count;
    std::uint32_t length_in_fields;

    std::uint32_t blockSize() const { return toAudioSize(frequency); }         // bytes
    std::uint32_t unitSize() const { return blockSize() * subchannel_count; }  // bytes: a block for each subchannel
};

// The units of one track. Threads: any; calls may overlap. Every call waits alertably, and only for its own I/O.
class TrackUnits {
  public:
    virtual ~TrackUnits() = default;

    // The current length; 0 once the clip is closed.
    virtual std::uint32_t lengthInUnits() = 0;

    // Reads `count` consecutive units and stores them one after the other at `to`. errors[i] becomes the
    // message of unit first + i, empty on success. Units past the end read as zeros.
    virtual void read(std::uint32_t first, std::uint32_t count, void* to, KString* errors) = 0;

    // Writes `count` consecutive units that lie one after the other at `from`. After an error, some of them may be
    // written.
    virtual KString write(std::uint32_t first, std::uint32_t count, void const* from) = 0;
};

// What a stream needs of its track, or an error. Each call looks up the track by its handle, so the clip may be closed
// at any time; from then on every unit's message is "Bad Handle".
struct AudioTrack {
    KString error;
    AudioTrackShape shape{};
    std::shared_ptr<TrackUnits> units;
};

// Empty when a stream can be opened on such a track. Otherwise the first error that applies: "Track does not use the
// hemlock audio codec", "Invalid argument (null pointer)" when `handle_out` is null, "Invalid video standard".
KString checkAudioTrack(TrackAudioType type, void const* handle_out, VideoStandard standard);

AudioTrack findAudioTrack(std::uint32_t track_handle, void const* handle_out);

}  // namespace KelvonClip
