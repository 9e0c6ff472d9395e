// Files of essence: the units that are written to a clip, and those that were read from it, for the decoder.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "plan.h"

namespace demo {

using Bytes = std::vector<std::byte>;

// A failure of the demonstration, with a text that describes it.
struct Failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Turns a message of the library into a Failure; null is success.
void require(wchar_t const* message, std::string const& what);
void require(bool condition, std::string const& what);

// The units of a track, in order: a folder's files in name order, or a file cut into frames of `frame_bytes`.
std::vector<Bytes> loadUnits(std::filesystem::path const& essence, std::size_t frame_bytes);

// The size of an encoded frame of a standard and format; 0 for code streams of varying size.
std::size_t frameBytes(ClipPlan const& clip);

// A WAV file's samples, 32-bit, one vector per channel.
std::vector<std::vector<std::int32_t>> loadWave(std::filesystem::path const& file, unsigned channels);

// The essence in a unit, without the zeros after the end of a code stream.
std::size_t essenceBytes(ClipPlan const& clip, Bytes const& unit);

// One unit of hemlock audio: a block of samples for each subchannel, as docs/format.md describes it, at the
// whole-number rate of 50 units a second. `unit` counts from 0 at the start of the recording.
Bytes frameAudioUnit(std::vector<std::vector<std::int32_t>> const& channels, std::size_t unit);
inline constexpr std::size_t SAMPLES_PER_UNIT_AT_50 = 960;

// One unit of a timecode track: the label in the packed encoding, then zeros. Interlaced rates of 50 fields.
Bytes frameTimecodeUnit(std::uint32_t count_in_fields, std::size_t unit_bytes);

void writeFile(std::filesystem::path const& file, std::vector<Bytes> const& parts);

// The name as the library takes it. path::wstring() would fail at letters beyond ASCII on Linux, unless the program had
// set a locale.
std::wstring wideName(std::filesystem::path const& file);

}  // namespace demo
