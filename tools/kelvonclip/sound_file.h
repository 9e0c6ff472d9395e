// Sound files: interleaved samples at 48 kHz, as WAV, or as RF64 where WAV has no room.
//
// A sample is a signed number of 32 bits. One of a file with fewer bits stands in the upper ones, so 16-bit files sound
// as loud as 32-bit files; written with fewer bits it loses the lower ones.
//
// Linux stands on libsndfile and reads whatever that knows. There is none for 32-bit Windows: there only WAV of 16, 24
// and 32 bits is read and written.
//
// Threads: one at a time for each object.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "console.h"

namespace tool {

constexpr std::uint32_t SOUND_RATE = 48000;  // of all sound files and of all audio tracks

class SoundReader {
  public:
    virtual ~SoundReader() = default;

    virtual std::uint32_t channels() const = 0;  // at least 1
    // Samples of each channel; absent where it shows only when they have all been read, as in a pipe.
    virtual std::optional<std::uint64_t> frames() const = 0;
    // Fills `samples`, a multiple of channels(). Returns how many frames there were: fewer only at the end, where a cut
    // frame is left out. Throws Failure.
    virtual std::size_t read(std::span<std::int32_t> samples) = 0;
};

// `path`: "-" is standard input. Throws Failure if there is no sound file that can be read, and for rates other than
// 48 kHz. Floating-point samples are read as numbers from -1 to 1; what is beyond is clipped.
std::unique_ptr<SoundReader> openSound(std::string const& path);

struct SoundShape {
    std::uint32_t channels = 0;
    std::uint32_t bits = 32;   // 16, 24 or 32
    std::uint64_t frames = 0;  // as many will be written; a header in front of a pipe needs to know
    bool rf64 = false;         // RF64 even where WAV has room
};

class SoundWriter {
  public:
    virtual ~SoundWriter() = default;

    // `samples`: whole frames. Throws Failure.
    virtual void write(std::span<std::int32_t const> samples) = 0;
    // Gives the file its name; without this call nothing is left. Throws Failure.
    virtual void finish() = 0;
};

// `path`: "-" is standard output, which gets a WAV header with the sizes that are to come; with FFFFFFFF hexadecimal as
// sizes where they do not fit, which players take for a stream that ends when it ends. Throws Failure.
std::unique_ptr<SoundWriter> createSound(std::string const& path, SoundShape const& shape, bool force,
                                         Console& console);

}  // namespace tool
