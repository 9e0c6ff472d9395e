// Video standards: every table row, every fallback, the parsers.
#include <kelvonclip/kelvon_std.h>

#include <cstddef>
#include <iterator>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using namespace KelvonClip;

// Values on both sides of every enumeration's range.
constexpr std::uint32_t OUTSIDE[] = {0, 28, 29, 1000, 0x80000000u, std::numeric_limits<std::uint32_t>::max()};

template <class E>
std::uint32_t number(E value) {
    return static_cast<std::uint32_t>(value);
}

std::wstring text(wchar_t const* stashed) { return stashed ? stashed : L"(null)"; }

// ----------------------------------------------------------------------------------------- iteration and validity

template <class E>
void expectRange(std::uint32_t last) {
    std::vector<std::uint32_t> visited;
    E value{12345};
    for (bool more = getfirst(value); more; more = getnext(value)) {
        visited.push_back(number(value));
        ASSERT_LE(visited.size(), last);
    }
    EXPECT_EQ(number(value), last);
    ASSERT_EQ(visited.size(), last);
    for (std::uint32_t i = 0; i < last; ++i)
        EXPECT_EQ(visited[i], i + 1);

    for (std::uint32_t i = 0; i <= last + 3; ++i)
        EXPECT_EQ(isValid(E{i}), i >= 1 && i <= last) << i;
    EXPECT_FALSE(isValid(E{0xFFFFFFFFu}));
    for (std::uint32_t stuck : {0u, last, last + 1, 0xFFFFFFFFu}) {
        E unchanged{stuck};
        EXPECT_FALSE(getnext(unchanged));
        EXPECT_EQ(number(unchanged), stuck);
    }
}

TEST(VideoStandards, WalkingAnEnumerationVisitsEveryValidValue) {
    expectRange<DropframeFlag>(2);
    expectRange<VideoFrequency>(10);
    expectRange<VideoResolution>(7);
    expectRange<VideoRoughFrequency>(6);
    expectRange<VideoStandard>(27);
}

// ------------------------------------------------------------------------------------------------------ frequencies

struct FrequencyRow {
    std::uint32_t value;
    wchar_t const* text;
    bool dropframe;
    std::uint32_t default_flag, rough, rough_fields, audio_size;
};
constexpr FrequencyRow FREQUENCIES[] = {
    {1, L"60Hz", false, 2, 1, 60, 4096},    {2, L"59.94Hz", true, 1, 1, 60, 4096},
    {3, L"50Hz", false, 2, 2, 50, 4096},    {4, L"48Hz", false, 2, 3, 48, 4096},
    {5, L"47.95Hz", false, 2, 3, 48, 4096}, {6, L"30Hz", false, 2, 4, 30, 8192},
    {7, L"29.97Hz", true, 1, 4, 30, 8192},  {8, L"25Hz", false, 2, 5, 25, 8192},
    {9, L"24Hz", false, 2, 6, 24, 8192},    {10, L"23.98Hz", false, 2, 6, 24, 8192},
};

TEST(VideoStandards, FrequencyProperties) {
    for (auto const& row : FREQUENCIES) {
        VideoFrequency const frequency{row.value};
        EXPECT_EQ(text(toString(frequency)), row.text);
        EXPECT_EQ(hasDropframe(frequency), row.dropframe) << row.value;
        EXPECT_EQ(number(defaultDropframeFlag(frequency)), row.default_flag) << row.value;
        EXPECT_EQ(number(toVideoRoughFrequency(frequency)), row.rough) << row.value;
        EXPECT_EQ(RoughFieldsPerSecond(frequency), row.rough_fields) << row.value;
        EXPECT_EQ(toAudioSize(frequency), row.audio_size) << row.value;
        EXPECT_EQ(number(toVideoFrequency(row.text)), row.value);
    }
}

TEST(VideoStandards, RatesAreExactFractions) {
    struct {
        std::uint32_t frequency, numerator, denominator;
    } const rows[] = {{1, 60, 1}, {2, 60000, 1001}, {3, 50, 1},         {4, 48, 1}, {5, 48000, 1001},
                      {6, 30, 1}, {7, 30000, 1001}, {8, 25, 1},         {9, 24, 1}, {10, 24000, 1001},
                      {0, 0, 1},  {11, 0, 1},       {0xFFFFFFFFu, 0, 1}};
    for (auto const& row : rows) {
        std::uint32_t numerator = 77, denominator = 77;
        EXPECT_EQ(toRatio(VideoFrequency{row.frequency}, &numerator, &denominator), row.numerator != 0);
        EXPECT_EQ(numerator, row.numerator) << row.frequency;
        EXPECT_EQ(denominator, row.denominator) << row.frequency;
        EXPECT_EQ(toRatio(VideoFrequency{row.frequency}, nullptr, nullptr), row.numerator != 0);
    }
    std::uint32_t numerator = 0, denominator = 0;
    EXPECT_TRUE(toRatio(VideoStandard{27}, &numerator, &denominator)) << "525i 59.94Hz";
    EXPECT_EQ(numerator, 60000u);
    EXPECT_EQ(denominator, 1001u);
    EXPECT_FALSE(toRatio(VideoStandard{28}, &numerator, &denominator));
    EXPECT_EQ(numerator, 0u);
}

TEST(VideoStandards, TextsOfRoughFrequencies) {
    wchar_t const* const texts[] = {L"(null)", L"60Hz", L"50Hz", L"48Hz", L"30Hz", L"25Hz", L"24Hz", L"(null)"};
    for (std::uint32_t value = 0; value < 8; ++value)
        EXPECT_EQ(text(toString(VideoRoughFrequency{value})), texts[value]);
}

TEST(VideoStandards, UnknownFrequenciesAreNeutral) {
    for (std::uint32_t value : {0u, 11u, 12u, 0xFFFFFFFFu}) {
        VideoFrequency const frequency{value};
        EXPECT_EQ(toString(frequency), nullptr);
        EXPECT_FALSE(hasDropframe(frequency));
        EXPECT_EQ(number(defaultDropframeFlag(frequency)), 2u);
        EXPECT_EQ(number(toVideoRoughFrequency(frequency)), 0u);
        EXPECT_EQ(RoughFieldsPerSecond(frequency), 60u);
        testing::internal::CaptureStderr();
        EXPECT_EQ(toAudioSize(frequency), 8192u);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "kelvon_std:373: Assertion failed: '0'\n");
    }
}

TEST(VideoStandards, AudioSizesOfKnownFrequenciesReportNothing) {
    testing::internal::CaptureStderr();
    for (auto const& row : FREQUENCIES)
        toAudioSize(VideoFrequency{row.value});
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(VideoStandards, RoughFrequencies) {
    constexpr std::uint32_t EXPECTED[] = {60, 60, 50, 48, 30, 25, 24, 60, 60};
    for (std::uint32_t value = 0; value < 9; ++value)
        EXPECT_EQ(RoughFieldsPerSecond(VideoRoughFrequency{value}), EXPECTED[value]) << value;
    EXPECT_EQ(RoughFieldsPerSecond(VideoRoughFrequency{0xFFFFFFFFu}), 60u);
}

// ---------------------------------------------------------------------------------------------------------- rasters

struct RasterRow {
    std::uint32_t value;
    wchar_t const* text;
    std::uint32_t width, frame_height, field_height, per_frame, per_field;
    bool interlaced, progressive, high, standard, top_is_f1;
};
constexpr RasterRow RASTERS[] = {
    {0, L"(null)", 0, 0, 0, 0, 0, true, false, false, false, true},
    {1, L"4K", 3840, 2160, 2160, 8294400, 8294400, false, true, true, false, true},
    {2, L"1080p", 1920, 1080, 1080, 2073600, 2073600, false, true, true, false, true},
    {3, L"1080i", 1920, 1080, 540, 2073600, 1036800, true, false, true, false, true},
    {4, L"1080psf", 1920, 1080, 540, 2073600, 1036800, true, false, true, false, true},
    {5, L"720p", 1280, 720, 720, 921600, 921600, false, true, true, false, true},
    {6, L"625i", 720, 576, 288, 414720, 207360, true, false, false, true, false},
    {7, L"525i", 720, 486, 243, 349920, 174960, true, false, false, true, true},
    {8, L"(null)", 0, 0, 0, 0, 0, true, false, false, false, true},
    {0xFFFFFFFFu, L"(null)", 0, 0, 0, 0, 0, true, false, false, false, true},
};

template <class E>
void expectRaster(E value, RasterRow const& row) {
    SCOPED_TRACE(number(value));
    EXPECT_EQ(width(value), row.width);
    EXPECT_EQ(frame_height(value), row.frame_height);
    EXPECT_EQ(field_height(value), row.field_height);
    EXPECT_EQ(pixels_per_frame(value), row.per_frame);
    EXPECT_EQ(pixels_per_field(value), row.per_field);
    EXPECT_EQ(isInterlaced(value), row.interlaced);
    EXPECT_EQ(isProgressive(value), row.progressive);
    EXPECT_EQ(isHighDefinition(value), row.high);
    EXPECT_EQ(isStandardDefinition(value), row.standard);
    EXPECT_EQ(top_field_is_f1(value), row.top_is_f1);
}

TEST(VideoStandards, RasterProperties) {
    for (auto const& row : RASTERS) {
        expectRaster(VideoResolution{row.value}, row);
        EXPECT_EQ(text(toString(VideoResolution{row.value})), row.text);
    }
}

// -------------------------------------------------------------------------------------------------------- standards

struct StandardRow {
    std::uint32_t value;
    wchar_t const* text;
    std::uint32_t resolution, frequency;
};
constexpr StandardRow STANDARDS[] = {
    {1, L"4K 60Hz", 1, 1},         {2, L"4K 59.94Hz", 1, 2},        {3, L"4K 50Hz", 1, 3},
    {4, L"4K 30Hz", 1, 6},         {5, L"4K 29.97Hz", 1, 7},        {6, L"4K 25Hz", 1, 8},
    {7, L"4K 24Hz", 1, 9},         {8, L"4K 23.98Hz", 1, 10},       {9, L"1080p 60Hz", 2, 1},
    {10, L"1080p 59.94Hz", 2, 2},  {11, L"1080p 50Hz", 2, 3},       {12, L"1080p 30Hz", 2, 6},
    {13, L"1080p 29.97Hz", 2, 7},  {14, L"1080p 25Hz", 2, 8},       {15, L"1080p 24Hz", 2, 9},
    {16, L"1080p 23.98Hz", 2, 10}, {17, L"1080psf 23.98Hz", 4, 10}, {19, L"1080i 60Hz", 3, 1},
    {18, L"1080i 59.94Hz", 3, 2},  {20, L"1080i 50Hz", 3, 3},       {21, L"1080i 48Hz", 3, 4},
    {22, L"1080i 47.95Hz", 3, 5},  {23, L"720p 60Hz", 5, 1},        {24, L"720p 59.94Hz", 5, 2},
    {25, L"720p 50Hz", 5, 3},      {26, L"625i 50Hz", 6, 3},        {27, L"525i 59.94Hz", 7, 2},
};
static_assert(std::size(STANDARDS) == 27);

TEST(VideoStandards, StandardsAreTheirRasterAndFrequency) {
    for (auto const& row : STANDARDS) {
        SCOPED_TRACE(row.value);
        VideoStandard const standard{row.value};
        EXPECT_EQ(text(toString(standard)), row.text);
        EXPECT_EQ(number(toVideoStandard(row.text)), row.value);
        EXPECT_EQ(number(toVideoResolution(standard)), row.resolution);
        EXPECT_EQ(number(toVideoFrequency(standard)), row.frequency);
        EXPECT_EQ(number(toVideoStandard(VideoResolution{row.resolution}, VideoFrequency{row.frequency})), row.value);

        expectRaster(standard, RASTERS[row.resolution]);
        auto const& frequency = FREQUENCIES[row.frequency - 1];
        EXPECT_EQ(hasDropframe(standard), frequency.dropframe);
        EXPECT_EQ(number(defaultDropframeFlag(standard)), frequency.default_flag);
        EXPECT_EQ(number(toVideoRoughFrequency(standard)), frequency.rough);
        EXPECT_EQ(RoughFieldsPerSecond(standard), frequency.rough_fields);
    }
}

// KEEP: 1080i 59.94Hz comes before 1080i 60Hz.
TEST(VideoStandards, Interlaced60And59_94AreTheWrongWayRound) {
    EXPECT_EQ(number(toVideoStandard(VideoResolution{3}, VideoFrequency{2})), 18u);
    EXPECT_EQ(number(toVideoStandard(VideoResolution{3}, VideoFrequency{1})), 19u);
    EXPECT_EQ(text(toString(VideoStandard{18})), L"1080i 59.94Hz");
}

TEST(VideoStandards, PairsWithoutAStandardGiveNone) {
    std::size_t found = 0;
    for (std::uint32_t resolution = 0; resolution <= 8; ++resolution)
        for (std::uint32_t frequency = 0; frequency <= 11; ++frequency) {
            std::uint32_t expected = 0;
            for (auto const& row : STANDARDS)
                if (row.resolution == resolution && row.frequency == frequency) expected = row.value;
            EXPECT_EQ(number(toVideoStandard(VideoResolution{resolution}, VideoFrequency{frequency})), expected);
            found += expected != 0;
        }
    EXPECT_EQ(found, 27u);
    EXPECT_EQ(number(toVideoStandard(VideoResolution{2}, VideoFrequency{4})), 0u);  // 1080p 48Hz
    EXPECT_EQ(number(toVideoStandard(VideoResolution{5}, VideoFrequency{8})), 0u);  // 720p 25Hz
}

TEST(VideoStandards, UnknownStandardsAreNeutral) {
    for (std::uint32_t value : OUTSIDE) {
        VideoStandard const standard{value};
        EXPECT_EQ(toString(standard), nullptr);
        EXPECT_EQ(number(toVideoResolution(standard)), 0u);
        EXPECT_EQ(number(toVideoFrequency(standard)), 0u);
        expectRaster(standard, RASTERS[0]);
        EXPECT_FALSE(hasDropframe(standard));
        EXPECT_EQ(number(defaultDropframeFlag(standard)), 2u);
        EXPECT_EQ(number(toVideoRoughFrequency(standard)), 0u);
        EXPECT_EQ(RoughFieldsPerSecond(standard), 60u);
    }
}

// ------------------------------------------------------------------------------------------------------- drop-frame

TEST(VideoStandards, DropframeByFrequency) {
    for (std::uint32_t value = 0; value <= 12; ++value) {
        VideoFrequency const frequency{value};
        bool const capable = value == 2 || value == 7;
        EXPECT_EQ(number(dropframeByVideoFrequency(frequency, DropframeFlag{0})), 0u) << value;
        EXPECT_EQ(number(dropframeByVideoFrequency(frequency, DropframeFlag{1})), capable ? 1u : 2u) << value;
        EXPECT_EQ(number(dropframeByVideoFrequency(frequency, DropframeFlag{2})), 2u) << value;
        EXPECT_EQ(number(dropframeByVideoFrequency(frequency, DropframeFlag{3})), 0u) << value;
        EXPECT_EQ(number(dropframeByVideoFrequency(frequency, DropframeFlag{0xFFFFFFFFu})), 0u) << value;
    }
}

TEST(VideoStandards, DropframeByStandard) {
    for (auto const& row : STANDARDS)
        for (std::uint32_t flag = 0; flag <= 3; ++flag)
            EXPECT_EQ(dropframeByVideoStandard(VideoStandard{row.value}, DropframeFlag{flag}),
                      dropframeByVideoFrequency(VideoFrequency{row.frequency}, DropframeFlag{flag}));
    for (std::uint32_t value : OUTSIDE) {
        EXPECT_EQ(number(dropframeByVideoStandard(VideoStandard{value}, DropframeFlag{0})), 0u);
        EXPECT_EQ(number(dropframeByVideoStandard(VideoStandard{value}, DropframeFlag{1})), 2u);
        EXPECT_EQ(number(dropframeByVideoStandard(VideoStandard{value}, DropframeFlag{2})), 2u);
    }
}

// ------------------------------------------------------------------------------------------------------------ texts

TEST(VideoStandards, FlagTexts) {
    EXPECT_EQ(toString(DropframeFlag{0}), nullptr);
    EXPECT_EQ(text(toString(DropframeFlag{1})), L"df");
    EXPECT_EQ(text(toString(DropframeFlag{2})), L"ndf");
    EXPECT_EQ(toString(DropframeFlag{3}), nullptr);
}

TEST(VideoStandards, EqualTextsHaveOneAddress) {
    EXPECT_EQ(toString(VideoStandard{18}), toString(VideoStandard{18}));
    EXPECT_EQ(toString(VideoResolution{4}), toString(VideoResolution{4}));
    EXPECT_EQ(toString(VideoFrequency{2}), toString(VideoFrequency{2}));
    EXPECT_NE(toString(VideoFrequency{2}), toString(VideoFrequency{1}));
}

TEST(VideoStandards, ParsersCompareTheWholeTextExactly) {
    EXPECT_EQ(number(toVideoResolution(L"1080psf")), 4u);
    for (wchar_t const* wrong :
         {L"", L"1080PSF", L"1080I", L" 1080i", L"1080i ", L"1080", L"1080i 50Hz", L"\xD83D\xDE00"})
        EXPECT_EQ(number(toVideoResolution(wrong)), 0u) << text(wrong).size();
    for (wchar_t const* wrong : {L"", L"50hz", L"50", L" 50Hz", L"50Hz ", L"50HzX", L"0Hz"})
        EXPECT_EQ(number(toVideoFrequency(wrong)), 0u);
    for (wchar_t const* wrong :
         {L"", L"1080i", L"1080i  50Hz", L"1080i50Hz", L"1080I 50Hz", L"1080p 48Hz", L"1080i 50Hz ", L" 1080i 50Hz"})
        EXPECT_EQ(number(toVideoStandard(wrong)), 0u);
    EXPECT_EQ(number(toVideoResolution(nullptr)), 0u);
    EXPECT_EQ(number(toVideoFrequency(nullptr)), 0u);
    EXPECT_EQ(number(toVideoStandard(nullptr)), 0u);
}

// KEEP: flags are recognised by address alone.
TEST(VideoStandards, OnlyTheLibrarysOwnFlagTextsAreFlags) {
    EXPECT_EQ(number(toDropframeFlag(toString(DropframeFlag{1}))), 1u);
    EXPECT_EQ(number(toDropframeFlag(toString(DropframeFlag{2}))), 2u);
    std::wstring const own_df = L"df", own_ndf = L"ndf";
    EXPECT_EQ(number(toDropframeFlag(own_df.c_str())), 0u);
    EXPECT_EQ(number(toDropframeFlag(own_ndf.c_str())), 0u);
    EXPECT_EQ(number(toDropframeFlag(toString(VideoFrequency{1}))), 0u);
    EXPECT_EQ(number(toDropframeFlag(nullptr)), 0u);
}

}  // namespace
