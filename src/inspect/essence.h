// What the bytes of a unit say by themselves: whether they begin as the track's format does, whether a piece is missing
// and whether the unit is there to its end.
//
// Threads: pure functions.
#pragma once

#include <kelvonclip/kelvon_std.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "audio/hemlock_block.h"
#include "clip/track_format.h"

namespace KelvonClip::inspect {

using UnitBytes = std::span<std::byte const>;

// Hosts write pages as a whole: a page of zeros in a unit may be one that was never written.
constexpr std::size_t PAGE = 4096;

constexpr std::size_t MOST_SUBCHANNELS = 16;

// True if the unit begins as its format does: a start code and a type of NAL unit (AVC), DIF blocks in their order
// (DV), a codestream (J2K), valid blocks of all subchannels (audio), a defined timecode with nothing behind it.
bool recognised(TrackFormat const& format, VideoFrequency frequency, UnitBytes unit);

// As many bytes of a unit as `recognised` looks at for video; the whole unit for audio.
std::uint32_t bytesToRecognise(TrackFormat const& format);

// True if a page of zeros lies where the format can have none: zeros were read instead of data.
bool hasHole(TrackFormat const& format, UnitBytes unit);

// True if no part of the unit can be missing, whatever the host held before (DV, audio in blocks of one page, timecode
// in one page); or, if the host held zeros, because no page is zero.
enum class HostBefore { unknown, zeros };
bool isWhole(TrackFormat const& format, UnitBytes unit, HostBefore before);

// The blocks of an audio unit. `valid`: how many of them are, from the first one on.
struct AudioUnit {
    std::array<std::optional<hemlock::BlockHeader>, MOST_SUBCHANNELS> blocks;
    std::uint32_t count = 0;

    bool complete() const;         // all valid, each in its subchannel's place
    bool startsRecording() const;  // complete, and all of them with the marks of a first block
};
AudioUnit readAudioUnit(TrackFormat const& format, VideoFrequency frequency, UnitBytes unit);

// True if `next` is the block that the writer makes after `previous`: the next word and the next phase.
bool isNextBlock(hemlock::BlockHeader const& previous, hemlock::BlockHeader const& next, VideoFrequency frequency);

// The field count of a timecode unit; absent if it has no timecode.
std::optional<std::uint32_t> timecodeOf(VideoFrequency frequency, UnitBytes unit);
// The count after `count`; after the last one of the day it is 0.
std::uint32_t nextTimecode(VideoFrequency frequency, UnitBytes unit, std::uint32_t count);

}  // namespace KelvonClip::inspect
