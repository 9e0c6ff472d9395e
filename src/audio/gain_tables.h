// The gain tables of the fades at the start and end of a recording.
#pragma once

#include <array>
#include <cstdint>

namespace KelvonClip::hemlock {

constexpr std::uint32_t FADE_SAMPLES = 100;
constexpr std::int32_t FULL_GAIN = 256;

// Gains in units of 1/256. Neither fade reaches the full gain: the maximum is 253.
struct Gains {
    std::array<std::int32_t, FADE_SAMPLES> out;  // from 253 down to 0
    std::array<std::int32_t, FADE_SAMPLES> in;   // from 0 up to 253
};

// Created on first use. Threads: any.
Gains const& gains();

}  // namespace KelvonClip::hemlock
