// JPEG 2000 limits: the table of sizes, the bit-rate rule, the search for a bit rate.
#include <kelvonclip/info_j2k.h>

#include <cstddef>
#include <iterator>
#include <string>

#include <gtest/gtest.h>

#include "clip/info_j2k.h"

namespace {

using namespace KelvonClip;

struct Sizes {
    std::uint32_t luma, chroma, video, key;
};
struct LimitRow {
    bool high;
    std::uint32_t rate;
    std::uint32_t min_rate, max_rate;  // Mbit/s
    Sizes max, min;
};
constexpr LimitRow LIMITS[] = {
    {true, 60, 25, 200, {313344, 104448, 417792, 315392}, {39936, 13312, 53248, 40960}},
    {true, 50, 25, 165, {310272, 103424, 413696, 311296}, {49152, 16384, 65536, 49152}},
    {true, 48, 25, 160, {313344, 104448, 417792, 315392}, {49152, 16384, 65536, 49152}},
    {true, 30, 25, 100, {313344, 104448, 417792, 315392}, {79872, 26624, 106496, 81920}},
    {true, 25, 25, 85, {319488, 106496, 425984, 319488}, {95232, 31744, 126976, 98304}},
    {true, 24, 25, 80, {313344, 104448, 417792, 417792}, {98304, 32768, 131072, 131072}},
    {false, 60, 15, 140, {221184, 73728, 294912, 221184}, {24576, 8192, 32768, 24576}},
    {false, 50, 15, 115, {218112, 72704, 290816, 221184}, {30720, 10240, 40960, 32768}},
    {false, 48, 15, 110, {215040, 71680, 286720, 217088}, {30720, 10240, 40960, 32768}},
    {false, 30, 15, 70, {221184, 73728, 294912, 221184}, {49152, 16384, 65536, 49152}},
    {false, 25, 15, 60, {227328, 75776, 303104, 229376}, {58368, 19456, 77824, 61440}},
    {false, 24, 15, 55, {215040, 71680, 286720, 286720}, {61440, 20480, 81920, 81920}},
};

LimitRow const* limitsOf(VideoStandard standard) {
    for (auto const& row : LIMITS)
        if (row.rate == RoughFieldsPerSecond(standard) && row.high == isHighDefinition(standard)) return &row;
    return nullptr;
}

TEST(J2kLimits, EveryStandardHasItsRow) {
    VideoStandard standard{};
    for (bool more = getfirst(standard); more; more = getnext(standard)) {
        SCOPED_TRACE(static_cast<std::uint32_t>(standard));
        LimitRow const* row = limitsOf(standard);
        ASSERT_NE(row, nullptr);
        EXPECT_EQ(j2kMinBitRate(standard), row->min_rate);
        EXPECT_EQ(j2kMaxBitRate(standard), row->max_rate);
        EXPECT_EQ(j2k_video_luma_max_size(standard), row->max.luma);
        EXPECT_EQ(j2k_video_chroma_max_size(standard), row->max.chroma);
        EXPECT_EQ(j2k_video_max_size(standard), row->max.video);
        EXPECT_EQ(j2k_key_max_size(standard), row->max.key);
        EXPECT_EQ(j2k_video_luma_min_size(standard), row->min.luma);
        EXPECT_EQ(j2k_video_chroma_min_size(standard), row->min.chroma);
        EXPECT_EQ(j2k_video_min_size(standard), row->min.video);
        EXPECT_EQ(j2k_key_min_size(standard), row->min.key);
    }
}

void expectSizes(J2KSizes const& sizes, Sizes const& expected) {
    EXPECT_EQ(sizes.luma, expected.luma);
    EXPECT_EQ(sizes.chroma, expected.chroma);
    EXPECT_EQ(sizes.luma + sizes.chroma, expected.video);
    EXPECT_EQ(sizes.key, expected.key);
    EXPECT_EQ(sizes.reserved, 0u);
}

// Those included that no video standard combines, such as standard definition at 25 units a second.
TEST(J2kLimits, EveryDefinitionAndRateHasItsRow) {
    std::size_t index = 0;
    for (bool high : {true, false}) {
        VideoRoughFrequency rough{};
        for (bool more = getfirst(rough); more; more = getnext(rough)) {
            LimitRow const& row = LIMITS[index++];
            SCOPED_TRACE(row.rate);
            ASSERT_EQ(row.high, high);
            ASSERT_EQ(row.rate, RoughFieldsPerSecond(rough));
            EXPECT_EQ(j2kBitRates(high, rough).min, row.min_rate);
            EXPECT_EQ(j2kBitRates(high, rough).max, row.max_rate);
            expectSizes(j2kSizesAtRate(rough, row.max_rate), row.max);
            expectSizes(j2kSizesAtRate(rough, row.min_rate), row.min);
        }
    }
    ASSERT_EQ(index, std::size(LIMITS));
}

TEST(J2kLimits, AnUnknownRateCountsAsSixtyForTheLimitAndHasNoSize) {
    for (std::uint32_t value : {0u, 7u, 0xFFFFFFFFu}) {
        VideoRoughFrequency const rough{value};
        EXPECT_EQ(j2kBitRates(true, rough).max, 200u);
        EXPECT_EQ(j2kBitRates(false, rough).max, 140u);
        expectSizes(j2kSizesAtRate(rough, 100), {0, 0, 0, 0});
    }
}

TEST(J2kLimits, NamedExamples) {
    EXPECT_EQ(j2k_video_min_size(VideoStandard::s1080i_59_94), 53248u);
    EXPECT_EQ(j2k_video_min_size(VideoStandard::s625i_50), 40960u);
    // KEEP: at 24 units a second a key unit is as large as a video unit.
    EXPECT_EQ(j2k_key_max_size(VideoStandard::s1080p_24), 417792u);
    EXPECT_EQ(j2k_video_max_size(VideoStandard::s1080p_24), 417792u);
    EXPECT_EQ(j2k_key_max_size(VideoStandard::s1080p_25), 319488u);
    EXPECT_EQ(j2k_video_max_size(VideoStandard::s1080p_25), 425984u);
}

TEST(J2kLimits, UnknownStandardsHaveNone) {
    for (std::uint32_t value : {0u, 28u, 0xFFFFFFFFu}) {
        VideoStandard const standard{value};
        for (auto* limit :
             {j2k_video_luma_max_size, j2k_video_luma_min_size, j2k_video_chroma_max_size, j2k_video_chroma_min_size,
              j2k_video_max_size, j2k_video_min_size, j2k_key_max_size, j2k_key_min_size, j2kMinBitRate, j2kMaxBitRate})
            EXPECT_EQ(limit(standard), 0u);
        for (std::uint32_t mbits = 0; mbits <= 205; ++mbits)
            EXPECT_FALSE(j2kBitRateValid(standard, mbits));
        EXPECT_EQ(j2kBitRateForSizes(standard, 1, 1, 1), 0u);
    }
}

TEST(J2kLimits, BitRatesAreMultiplesOfFiveWithinTheLimits) {
    VideoStandard standard{};
    for (bool more = getfirst(standard); more; more = getnext(standard)) {
        LimitRow const* row = limitsOf(standard);
        ASSERT_NE(row, nullptr);
        for (std::uint32_t mbits = 0; mbits <= 300; ++mbits)
            EXPECT_EQ(j2kBitRateValid(standard, mbits),
                      mbits >= row->min_rate && mbits <= row->max_rate && mbits % 5 == 0)
                << mbits;
        EXPECT_FALSE(j2kBitRateValid(standard, 0xFFFFFFFFu / 5 * 5));
    }
    EXPECT_FALSE(j2kBitRateValid(VideoStandard::s1080i_59_94, 102));
    EXPECT_TRUE(j2kBitRateValid(VideoStandard::s1080i_59_94, 200));
    EXPECT_FALSE(j2kBitRateValid(VideoStandard::s1080i_50, 200));
    EXPECT_TRUE(j2kBitRateValid(VideoStandard::s1080i_50, 165));
}

TEST(J2kSizes, InvalidBitRatesHaveNoSizes) {
    for (std::uint32_t mbits : {0u, 20u, 26u, 170u, 0xFFFFFFFFu}) {
        J2KSizes const sizes = j2kSizes(VideoStandard::s1080i_50, mbits);
        EXPECT_EQ(sizes.luma, 0u);
        EXPECT_EQ(sizes.chroma, 0u);
        EXPECT_EQ(sizes.key, 0u);
        EXPECT_EQ(sizes.reserved, 0u);
    }
}

// Properties of every size: the smallest number of whole pages that holds the bit rate; three quarters are luma.
TEST(J2kSizes, UnitsAreTheFewestPagesThatHoldTheBitRate) {
    VideoStandard standard{};
    for (bool more = getfirst(standard); more; more = getnext(standard))
        for (std::uint32_t mbits = j2kMinBitRate(standard); mbits <= j2kMaxBitRate(standard); mbits += 5) {
            J2KSizes const sizes = j2kSizes(standard, mbits);
            double const bytes = mbits * 1e6 / 8 / RoughFieldsPerSecond(standard);
            std::uint32_t const total = sizes.luma + sizes.chroma;
            EXPECT_EQ(total % 4096, 0u);
            EXPECT_GE(total, bytes);
            EXPECT_LT(total, bytes + 4096);
            EXPECT_EQ(sizes.luma % 256, 0u);
            EXPECT_LE(sizes.luma, total * 0.75);
            EXPECT_GT(sizes.luma, total * 0.75 - 256);
            EXPECT_EQ(sizes.key % 4096, 0u);
            if (RoughFieldsPerSecond(standard) == 24) {
                EXPECT_EQ(sizes.key, total);
            } else {
                EXPECT_GE(sizes.key, total * 0.75);
                EXPECT_LT(sizes.key, total * 0.75 + 4096);
            }
            EXPECT_EQ(sizes.reserved, 0u);
        }
}

TEST(J2kBitRateForSizes, IsTheSmallestThatHoldsAllThree) {
    VideoStandard standard{};
    for (bool more = getfirst(standard); more; more = getnext(standard)) {
        std::uint32_t previous = 0;
        for (std::uint32_t mbits = j2kMinBitRate(standard); mbits <= j2kMaxBitRate(standard); mbits += 5) {
            J2KSizes const sizes = j2kSizes(standard, mbits);
            EXPECT_EQ(j2kBitRateForSizes(standard, sizes.luma, sizes.chroma, sizes.key), mbits);
            EXPECT_EQ(j2kBitRateForSizes(standard, sizes.luma, 1, 0), mbits);
            EXPECT_EQ(j2kBitRateForSizes(standard, 0, sizes.chroma, 0), mbits);
            if (previous != 0) {
                J2KSizes const below = j2kSizes(standard, previous);
                EXPECT_EQ(j2kBitRateForSizes(standard, below.luma + 1, 1, 0), mbits);
                EXPECT_EQ(j2kBitRateForSizes(standard, 0, below.chroma + 1, 0), mbits);
            }
            previous = mbits;
        }
        J2KSizes const greatest = j2kSizes(standard, j2kMaxBitRate(standard));
        EXPECT_EQ(j2kBitRateForSizes(standard, greatest.luma + 1, 1, 0), 0u);
        EXPECT_EQ(j2kBitRateForSizes(standard, 1, greatest.chroma + 1, 0), 0u);
        EXPECT_EQ(j2kBitRateForSizes(standard, 1, 1, greatest.key + 1), 0u);
        EXPECT_EQ(j2kBitRateForSizes(standard, 0x80000000u, 0x80000000u, 0), 0u);
    }
}

// KEEP: if neither luma nor chroma is requested, the key size is ignored.
TEST(J2kBitRateForSizes, WithoutVideoIsTheLeastOne) {
    EXPECT_EQ(j2kBitRateForSizes(VideoStandard::s1080i_50, 0, 0, 0), 25u);
    EXPECT_EQ(j2kBitRateForSizes(VideoStandard::s1080i_50, 0, 0, 311296), 25u);
    EXPECT_EQ(j2kBitRateForSizes(VideoStandard::s625i_50, 0, 0, 0xFFFFFFFFu), 15u);
}

TEST(J2kBitRateForSizes, LumaWithoutChromaIsReported) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(j2kBitRateForSizes(VideoStandard::s1080i_50, 49152, 0, 0), 25u);
    std::string const line = testing::internal::GetCapturedStderr();
    EXPECT_EQ(line.rfind("info_j2k:", 0), 0u) << line;
    EXPECT_NE(line.find(": Assertion failed: 'chroma_size != 0'\n"), std::string::npos) << line;

    testing::internal::CaptureStderr();
    j2kBitRateForSizes(VideoStandard::s1080i_50, 0, 0, 1);
    j2kBitRateForSizes(VideoStandard::s1080i_50, 0, 1, 1);
    j2kBitRateForSizes(VideoStandard::s1080i_50, 1, 1, 1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

}  // namespace
