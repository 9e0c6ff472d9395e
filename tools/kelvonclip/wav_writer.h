// Plain WAV, written from front to back: for pipes, and for hosts without a library that does it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "output_file.h"
#include "sound_file.h"

namespace tool {

// Bytes of the samples.
std::uint64_t soundBytes(SoundShape const& shape);
// Whether WAV has room for them.
bool fitsWav(SoundShape const& shape);

class WavWriter : public SoundWriter {
  public:
    // What does not fit WAV gets FFFFFFFF hexadecimal as sizes. Throws Failure.
    WavWriter(std::string const& path, SoundShape const& shape, bool force, Console& console);

    void write(std::span<std::int32_t const> samples) override;
    void finish() override;

  private:
    SoundShape const shape;
    OutputFile file;
    std::vector<std::byte> packed;
};

}  // namespace tool
