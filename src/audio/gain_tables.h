// The two gain tables of the fades at the joins of a recording.
#pragma once

#include <array>
#include <cstdint>

namespace KelvonClip::hemlock {

constexpr std::uint32_t FADE_SAMPLES = 100;
constexpr std::int32_t FULL_GAIN = 256;

// Gains in 256ths. Neither fade reaches the full gain: they run between 253 and 0.
struct Gains {
    std::array<std::int32_t, FADE_SAMPLES> out;  // falling from 253 to 0
    std::array<std::int32_t, FADE_SAMPLES> in;   // the same, mirrored
};

// Built once, on first use. Threads: any.
Gains const& gains();

}  // namespace KelvonClip::hemlock
