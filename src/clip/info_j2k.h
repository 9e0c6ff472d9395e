// JPEG 2000 tracks: the bit rates that a standard allows, and the unit sizes at each of them.
//
// Pure functions. Threads: any.
#pragma once

#include <cstdint>

#include <kelvonclip/kelvon_std.h>

namespace KelvonClip {

// On disk, units of video and key tracks fill whole pages of this many bytes.
constexpr std::uint32_t UNIT_PAGE = 4096;

constexpr std::uint32_t J2K_BIT_RATE_STEP = 5;  // Mbit/s between two valid bit rates

// Bytes of one unit at a bit rate.
struct J2KSizes {
    std::uint32_t luma, chroma, key;
    std::uint32_t reserved;  // always 0
};

// The standard's limits in Mbit/s. Both are 0 for a standard that is neither high nor standard definition; it has no
// valid bit rate.
std::uint32_t j2kMinBitRate(VideoStandard standard);
std::uint32_t j2kMaxBitRate(VideoStandard standard);

// Whether the bit rate is a multiple of 5 within the standard's limits.
bool j2kBitRateValid(VideoStandard standard, std::uint32_t mbits);

// The rules that these functions apply, for every definition and rate, including combinations without a video standard.
struct J2KBitRates {
    std::uint32_t min, max;
};
J2KBitRates j2kBitRates(bool high_definition, VideoRoughFrequency rough);
// At any bit rate up to 200; all zero for an unknown rate.
J2KSizes j2kSizesAtRate(VideoRoughFrequency rough, std::uint32_t mbits);

// All zero for a bit rate that is not valid.
J2KSizes j2kSizes(VideoStandard standard, std::uint32_t mbits);

// The lowest valid bit rate whose sizes are at least the given ones; 0 if there is none. If luma and chroma are both 0,
// the lowest valid bit rate, whatever the key size.
std::uint32_t j2kBitRateForSizes(VideoStandard standard, std::uint32_t luma, std::uint32_t chroma, std::uint32_t key);

}  // namespace KelvonClip
