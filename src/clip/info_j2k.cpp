// info_j2k: the bit rates and unit sizes of JPEG 2000 tracks, in integer arithmetic that rounds down.
#include "clip/info_j2k.h"

#include <algorithm>

#include "foundation/kassert.h"

namespace KelvonClip {

namespace {

// The bit rate rounded to a multiple of 5 and clamped to 15..200 Mbit/s.
constexpr std::uint32_t toStep(std::uint32_t mbits) {
    return std::clamp((2 * mbits + 5) / 10 * J2K_BIT_RATE_STEP, 15u, 200u);
}

// The smallest multiple of a page that is greater than `bytes`.
constexpr std::uint32_t nextPage(std::uint32_t bytes) { return bytes / UNIT_PAGE * UNIT_PAGE + UNIT_PAGE; }

J2KBitRates bitRates(VideoStandard standard) {
    bool const high = isHighDefinition(standard);
    if (!high && !isStandardDefinition(standard)) return {0, 0};
    return j2kBitRates(high, toVideoRoughFrequency(standard));
}

}  // namespace

// The maximum bit rate is defined for 60 units per second; lower rates get their share of it.
J2KBitRates j2kBitRates(bool high_definition, VideoRoughFrequency rough) {
    std::uint32_t const at_sixty = toStep(high_definition ? 200 : 140);
    std::uint32_t const rate = RoughFieldsPerSecond(rough);
    return {high_definition ? 25u : 15u, rate == 60 ? at_sixty : toStep(rate * at_sixty / 60)};
}

std::uint32_t j2kMinBitRate(VideoStandard standard) { return bitRates(standard).min; }
std::uint32_t j2kMaxBitRate(VideoStandard standard) { return bitRates(standard).max; }

bool j2kBitRateValid(VideoStandard standard, std::uint32_t mbits) {
    J2KBitRates const limits = bitRates(standard);
    return limits.min != 0 && limits.min <= mbits && mbits <= limits.max && mbits % J2K_BIT_RATE_STEP == 0;
}

J2KSizes j2kSizes(VideoStandard standard, std::uint32_t mbits) {
    if (!j2kBitRateValid(standard, mbits)) return {};
    return j2kSizesAtRate(toVideoRoughFrequency(standard), mbits);
}

J2KSizes j2kSizesAtRate(VideoRoughFrequency rough, std::uint32_t mbits) {
    if (!isValid(rough)) return {};

    std::uint32_t const bytes = (mbits * 1000000 / 8 - 1) / RoughFieldsPerSecond(rough);
    std::uint32_t const total = nextPage(bytes);
    std::uint32_t const luma = total * 75 / 100 / 256 * 256;
    std::uint32_t const chroma = total - luma;
    kassert(chroma != 0, "info_j2k", __LINE__, "chroma_size != 0");

    // A key unit has three quarters of the pages of a video unit.
    // KEEP: all of them at 24 units per second.
    std::uint32_t const three_quarters = (bytes / UNIT_PAGE + 1) * (UNIT_PAGE * 75) / 100;
    std::uint32_t const key = rough == VideoRoughFrequency::f24 ? total : nextPage(three_quarters - 1);
    return {luma, chroma, key, 0};
}

std::uint32_t j2kBitRateForSizes(VideoStandard standard, std::uint32_t luma, std::uint32_t chroma, std::uint32_t key) {
    bool const video_wanted = luma != 0 || chroma != 0;
    kassert(luma == 0 || chroma != 0, "info_j2k", __LINE__, "chroma_size != 0");
    J2KBitRates const limits = bitRates(standard);
    for (std::uint32_t mbits = limits.min; mbits <= limits.max; mbits += J2K_BIT_RATE_STEP) {
        J2KSizes const sizes = j2kSizes(standard, mbits);
        if (!video_wanted || (luma <= sizes.luma && chroma <= sizes.chroma && key <= sizes.key)) return mbits;
    }
    return 0;
}

}  // namespace KelvonClip
