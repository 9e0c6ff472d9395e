// Functions of the C interface that take and give numbers answer what the C++ function that each one calls answers, for
// every valid value and for some that are not. The rest of the C interface: tests/c_api.
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <tuple>

#include <gtest/gtest.h>
#include <kelvonclip/c_api.h>
#include <kelvonclip/kelvonclip.h>

#include "support/scratch_path.h"

namespace KelvonClip {
namespace {

// All values of every enumeration, those behind them, and the largest number.
template <class Check>
void forNumbers(Check&& check) {
    for (std::uint32_t value = 0; value <= 32; ++value)
        check(value);
    check(std::numeric_limits<std::uint32_t>::max());
}

// The library's texts for values are ASCII.
std::string narrow(wchar_t const* wide) {
    std::string result;
    if (wide == nullptr) return "(null)";
    for (; *wide != 0; ++wide)
        result += static_cast<char>(*wide);
    return result;
}
std::string narrow(char const* text) { return text == nullptr ? "(null)" : text; }

template <class Value>
std::uint32_t asNumber(Value value) {
    return static_cast<std::uint32_t>(value);
}
std::string asNumber(wchar_t const* text) { return narrow(text); }
std::string asNumber(char const* text) { return narrow(text); }

template <class Enumeration, class Answer, class CAnswer>
void expectTwins(CAnswer (*c)(std::uint32_t), Answer (*cpp)(Enumeration), char const* name) {
    forNumbers([&](std::uint32_t value) {
        EXPECT_EQ(asNumber(c(value)), asNumber(cpp(Enumeration{value}))) << name << " of " << value;
    });
}
template <class Enumeration, class Answer, class CAnswer>
void expectTwins(CAnswer (*c)(std::uint32_t, std::uint32_t), Answer (*cpp)(Enumeration, DropframeFlag),
                 char const* name) {
    forNumbers([&](std::uint32_t value) {
        for (std::uint32_t flag = 0; flag <= 3; ++flag)
            EXPECT_EQ(asNumber(c(value, flag)), asNumber(cpp(Enumeration{value}, DropframeFlag{flag})))
                << name << " of " << value << ", " << flag;
    });
}
#define TWINS(type, c, cpp) expectTwins<type>(c, cpp, #c)

TEST(CTwins, AskOfAResolutionOrAStandard) {
#define BOTH(c, cpp) TWINS(VideoResolution, kclip_resolution_##c, cpp), TWINS(VideoStandard, kclip_standard_##c, cpp)
    BOTH(width, width);
    BOTH(frame_height, frame_height);
    BOTH(field_height, field_height);
    BOTH(pixels_per_frame, pixels_per_frame);
    BOTH(pixels_per_field, pixels_per_field);
    BOTH(is_interlaced, isInterlaced);
    BOTH(is_progressive, isProgressive);
    BOTH(is_high_definition, isHighDefinition);
    BOTH(is_standard_definition, isStandardDefinition);
    BOTH(top_field_is_f1, top_field_is_f1);
#undef BOTH
    TWINS(VideoStandard, kclip_standard_frequency, toVideoFrequency);
    TWINS(VideoStandard, kclip_standard_resolution, toVideoResolution);
}

TEST(CTwins, AskOfAFrequencyOrAStandard) {
#define BOTH(c, cpp) TWINS(VideoFrequency, kclip_frequency_##c, cpp), TWINS(VideoStandard, kclip_standard_##c, cpp)
    BOTH(has_dropframe, hasDropframe);
    BOTH(default_flag, defaultDropframeFlag);
    BOTH(rough_frequency, toVideoRoughFrequency);
    BOTH(rough_fields_per_second, RoughFieldsPerSecond);
#undef BOTH
    TWINS(VideoFrequency, kclip_frequency_flag_for, dropframeByVideoFrequency);
    TWINS(VideoStandard, kclip_standard_flag_for, dropframeByVideoStandard);
    TWINS(VideoRoughFrequency, kclip_rough_frequency_fields_per_second, RoughFieldsPerSecond);
    TWINS(VideoFrequency, kclip_frequency_audio_size, toAudioSize);
    TWINS(VideoFrequency, kclip_timecode_fields_per_second, timecode_fields_per_second);
    TWINS(VideoFrequency, kclip_timecode_fields_per_minute, timecode_fields_per_minute);
    TWINS(VideoFrequency, kclip_timecode_fields_per_10minutes, timecode_fields_per_10minutes);
    TWINS(VideoFrequency, kclip_timecode_fields_per_hour, timecode_fields_per_hour);
    TWINS(VideoFrequency, kclip_timecode_fields_per_day, timecode_fields_per_day);
}

TEST(CTwins, GiveTheRatioOfAFrequency) {
    forNumbers([](std::uint32_t value) {
        std::uint32_t numerator = 1, denominator = 2;
        unsigned int expected_numerator = 1, expected_denominator = 2;
        EXPECT_EQ(kclip_frequency_ratio(value, &numerator, &denominator),
                  toRatio(VideoFrequency{value}, &expected_numerator, &expected_denominator));
        EXPECT_EQ(numerator, expected_numerator) << value;
        EXPECT_EQ(denominator, expected_denominator) << value;
    });
}

TEST(CTwins, GiveTheSizesOfJ2kPictures) {
    TWINS(VideoStandard, kclip_j2k_video_luma_max_size, j2k_video_luma_max_size);
    TWINS(VideoStandard, kclip_j2k_video_luma_min_size, j2k_video_luma_min_size);
    TWINS(VideoStandard, kclip_j2k_video_chroma_max_size, j2k_video_chroma_max_size);
    TWINS(VideoStandard, kclip_j2k_video_chroma_min_size, j2k_video_chroma_min_size);
    TWINS(VideoStandard, kclip_j2k_video_max_size, j2k_video_max_size);
    TWINS(VideoStandard, kclip_j2k_video_min_size, j2k_video_min_size);
    TWINS(VideoStandard, kclip_j2k_key_max_size, j2k_key_max_size);
    TWINS(VideoStandard, kclip_j2k_key_min_size, j2k_key_min_size);
}

TEST(CTwins, GiveTheTextOfAValue) {
    TWINS(DropframeFlag, kclip_flag_to_text, toString);
    TWINS(VideoFrequency, kclip_frequency_to_text, toString);
    TWINS(VideoResolution, kclip_resolution_to_text, toString);
    TWINS(VideoRoughFrequency, kclip_rough_frequency_to_text, toString);
    TWINS(VideoStandard, kclip_standard_to_text, toString);
    TWINS(TrackCategory, kclip_category_to_text, toString);
    TWINS(TrackVideoType, kclip_video_type_to_text, toString);
    TWINS(TrackAudioType, kclip_audio_type_to_text, toString);
    TWINS(AVCFlavor, kclip_avc_flavor_to_text, toString);
    TWINS(TimecodeSource, kclip_timecode_source_to_text, toString);
}

TEST(CTwins, FindTheValueOfAText) {
    forNumbers([](std::uint32_t value) {
        if (isValid(VideoFrequency{value})) {
            EXPECT_EQ(kclip_frequency_from_text(kclip_frequency_to_text(value)), value);
        }
        if (isValid(VideoResolution{value})) {
            EXPECT_EQ(kclip_resolution_from_text(kclip_resolution_to_text(value)), value);
        }
    });
    EXPECT_EQ(kclip_frequency_from_text("no such text"), 0u);
    EXPECT_EQ(kclip_resolution_from_text(nullptr), 0u);
}

template <class Enumeration>
void expectSameWalk(bool (*c_first)(std::uint32_t*), bool (*c_next)(std::uint32_t*), bool (*c_valid)(std::uint32_t)) {
    std::uint32_t value = 77;
    Enumeration expected{77};
    bool more = c_first(&value), expected_more = getfirst(expected);
    for (int steps = 0; more && expected_more && steps < 100; ++steps) {
        ASSERT_EQ(value, asNumber(expected));
        more = c_next(&value);
        expected_more = getnext(expected);
    }
    EXPECT_FALSE(more || expected_more) << "both end together";
    forNumbers([&](std::uint32_t number) { EXPECT_EQ(c_valid(number), isValid(Enumeration{number})) << number; });
}

TEST(CTwins, WalkAlongTheSameValues) {
    expectSameWalk<DropframeFlag>(kclip_flag_first, kclip_flag_next, kclip_flag_is_valid);
    expectSameWalk<VideoFrequency>(kclip_frequency_first, kclip_frequency_next, kclip_frequency_is_valid);
    expectSameWalk<VideoResolution>(kclip_resolution_first, kclip_resolution_next, kclip_resolution_is_valid);
    expectSameWalk<VideoRoughFrequency>(kclip_rough_frequency_first, kclip_rough_frequency_next,
                                        kclip_rough_frequency_is_valid);
    expectSameWalk<VideoStandard>(kclip_standard_first, kclip_standard_next, kclip_standard_is_valid);
}

// ------------------------------------------------------------------------------------------------------ byte order

std::uint64_t bytesReversed(std::uint64_t value, std::size_t size) {
    std::uint64_t reversed = 0;
    for (std::size_t i = 0; i < size; ++i)
        reversed |= (value >> (8 * i) & 0xFF) << (8 * (size - 1 - i));
    return reversed;
}

// The parts side by side, the first one in the highest bits.
template <class... Part>
std::uint64_t sideBySide(bool each_reversed, Part... parts) {
    std::uint64_t whole = 0;
    auto const append = [&](std::uint64_t part, std::size_t size) {
        std::uint64_t const bits = size == 8 ? part : part & ((std::uint64_t{1} << (8 * size)) - 1);
        whole = (size == 8 ? 0 : whole << (8 * size)) | (each_reversed ? bytesReversed(bits, size) : bits);
    };
    (append(static_cast<std::uint64_t>(parts), sizeof(Part)), ...);
    return whole;
}

// Parts of both signs, with different bytes.
template <class... Part>
std::tuple<Part...> someParts() {
    std::uint64_t next = 0x80C1B2A3F4E5D697;
    auto const draw = [&] { return next = next * 6364136223846793005u + 1442695040888963407u; };
    return {static_cast<Part>(draw())...};
}

// A number of a file in the host's order: a single part is one that has been read as it stands; several are single
// bytes or parts that have been.
template <class Whole, class... Part>
void expectFromFile(Whole (*convert)(Part...), char const* name) {
    auto const parts = someParts<Part...>();
    auto const expected = std::apply([](auto... part) { return sideBySide(true, part...); }, parts);
    EXPECT_EQ(std::apply(convert, parts), static_cast<Whole>(expected)) << name;
}

// A number whose bytes in memory are those of the parts, the highest first.
template <class Whole, class... Part>
void expectToFile(Whole (*convert)(Part...), char const* name) {
    auto const parts = someParts<Part...>();
    auto const joined = std::apply([](auto... part) { return sideBySide(false, part...); }, parts);
    EXPECT_EQ(std::apply(convert, parts), static_cast<Whole>(bytesReversed(joined, sizeof(Whole)))) << name;
}

TEST(CTwins, ConvertByteOrder) {
#define CONVERT(variant)                                                                                               \
    expectFromFile(kclip_from_be_##variant, #variant);                                                                 \
    expectToFile(kclip_to_be_##variant, #variant)
    CONVERT(u8);
    CONVERT(s8);
    CONVERT(u16_of_8);
    CONVERT(u16);
    CONVERT(s16_of_8);
    CONVERT(s16);
    CONVERT(u32_of_8);
    CONVERT(u32_of_16);
    CONVERT(u32);
    CONVERT(s32_of_8);
    CONVERT(s32_of_16);
    CONVERT(s32);
    CONVERT(u64_of_8);
    CONVERT(u64_of_16);
    CONVERT(u64_of_32);
    CONVERT(u64);
    CONVERT(s64_of_8);
    CONVERT(s64_of_16);
    CONVERT(s64_of_32);
    CONVERT(s64);
#undef CONVERT
}

// ----------------------------------------------------------------------------------------------------------- clips

TEST(CTwins, AnswerForAClipOfJ2k) {
    ScratchPath const scratch;
    std::string const name = (scratch.path / "twins.clip").string(), copy_name = (scratch.path / "copy.clip").string();
    std::uint32_t creation = 0, clip = 0;
    std::uint32_t const luma = kclip_j2k_video_luma_min_size(20), chroma = kclip_j2k_video_chroma_min_size(20);
    std::uint32_t const key = kclip_j2k_key_min_size(20);
    ASSERT_STREQ(kclip_create_begin(name.c_str(), 20, &creation), nullptr);
    ASSERT_STREQ(kclip_cfg_video_j2k(creation, luma, chroma, key), nullptr);
    ASSERT_STREQ(kclip_cfg_track_count_video(creation, 1), nullptr);
    ASSERT_STREQ(kclip_cfg_track_count_key(creation, 1), nullptr);
    ASSERT_STREQ(kclip_cfg_clip_timecode2(creation, 500, false, false, false), nullptr);
    ASSERT_STREQ(kclip_create_finish(creation, &clip), nullptr);

    ASSERT_EQ(kclip_clip_track_count(clip), 2u);
    std::uint32_t const video = kclip_clip_get_track(clip, 0), key_track = kclip_clip_get_track(clip, 1);
    EXPECT_EQ(kclip_track_j2k_video_luma_size(video), luma);
    EXPECT_EQ(kclip_track_j2k_video_chroma_size(video), chroma);
    EXPECT_EQ(kclip_track_j2k_video_size(video), track_j2k_video_size(video));
    EXPECT_GE(kclip_track_j2k_video_size(video), luma + chroma);
    EXPECT_EQ(kclip_track_j2k_key_size(key_track), key);
    EXPECT_EQ(kclip_track_get_video_standard(video), 20u);
    EXPECT_EQ(kclip_track_fields_per_unit(video), track_fields_per_unit(video));
    EXPECT_GT(kclip_track_fields_per_unit(video), 0u);

    std::uint32_t copy = 0;
    ASSERT_STREQ(kclip_create_begin(copy_name.c_str(), 20, &copy), nullptr);
    EXPECT_STREQ(kclip_cfg_clip_timecode(clip, copy), nullptr);
    EXPECT_STREQ(kclip_create_cancel(copy), nullptr);
    kclip_clip_close(clip);

    ASSERT_STREQ(kclip_clip_open_rw(name.c_str(), &clip), nullptr);
    EXPECT_TRUE(kclip_clip_is_writable(clip));
    EXPECT_TRUE(kclip_clip_timecode_valid(clip));
    EXPECT_EQ(kclip_clip_unreplayed_bytes(clip), 0u) << "it has been closed";
    EXPECT_EQ(kclip_clip_get_last_loaded(clip), clip_get_last_loaded(clip));
    EXPECT_EQ(kclip_clip_get_last_unloaded(clip), clip_get_last_unloaded(clip));
    EXPECT_EQ(kclip_clip_get_last_played(clip), clip_get_last_played(clip));
    EXPECT_EQ(kclip_clip_get_last_content_edit(clip), clip_get_last_content_edit(clip));
    EXPECT_EQ(kclip_clip_get_length(clip), clip_get_length(clip));
    EXPECT_EQ(kclip_clip_get_trim_start(clip), clip_get_trim_start(clip));
    EXPECT_EQ(kclip_clip_get_trim_end(clip), clip_get_trim_end(clip));
    kclip_clip_close(clip);
}

}  // namespace
}  // namespace KelvonClip
