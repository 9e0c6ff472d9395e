// The formats that a standard has, against what creating and opening makes of them.
#include <cstdint>
#include <filesystem>
#include <map>
#include <set>
#include <string>

#include <gtest/gtest.h>
#include <kelvonclip/kelvon_clip.h>
#include <kelvonclip/track_format.h>

#include "public/public_support.h"
#include "support/scratch_path.h"

namespace KelvonClip {
namespace {

using namespace test;

constexpr TrackVideoType VIDEO_TYPES[] = {TrackVideoType::j2k, TrackVideoType::dv, TrackVideoType::avc};

// What the formats of a standard are, by name.
std::map<std::string, FormatInfo> formatsOf(VideoStandard standard) {
    std::map<std::string, FormatInfo> formats;
    for (unsigned int index = 0; wchar_t const* const name = format_name(standard, index); ++index) {
        FormatInfo info{};
        EXPECT_TRUE(format_info(standard, name, &info)) << said(name);
        EXPECT_TRUE(formats.emplace(said(name), info).second) << said(name) << " twice";
    }
    return formats;
}

// Creates a clip with one track of the format, as far as the configuration functions can ask for it.
std::string create(std::wstring const& name, VideoStandard standard, FormatInfo const& format, unsigned int& clip) {
    unsigned int creation = 0;
    EXPECT_OK(create_begin(name.c_str(), standard, &creation));
    switch (format.category) {
    case TrackCategory::video:
        EXPECT_OK(cfg_track_count_video(creation, 1));
        break;
    case TrackCategory::key:
        EXPECT_OK(cfg_track_count_key(creation, 1));
        break;
    case TrackCategory::audio:
        EXPECT_OK(cfg_track_count_audio(creation, 1));
        EXPECT_OK(cfg_audio_hemlock(creation, format.subchannels));
        break;
    case TrackCategory::timecode:
        EXPECT_OK(cfg_track_timecode(creation));
        break;
    case TrackCategory::none:
        break;
    }
    wchar_t const* configured = nullptr;
    if (format.video_type == TrackVideoType::avc) configured = cfg_video_avci(creation);
    if (format.video_type == TrackVideoType::dv) configured = cfg_video_dv(creation);
    if (format.video_type == TrackVideoType::j2k)
        configured = cfg_video_j2k(creation, format.luma_size, format.chroma_size, 0);
    EXPECT_OK(configured);
    std::string const message = said(create_finish(creation, &clip));
    if (!message.empty()) {
        EXPECT_OK(create_cancel(creation));
    }
    return message;
}

TEST(TrackFormats, WhatCanBeCreatedIsMadeWithTheUnitsThatWereTold) {
    ScratchPath folder;
    auto const name = folder.name("clip");
    unsigned int created = 0;
    VideoStandard standard{};
    for (bool more = getfirst(standard); more; more = getnext(standard)) {
        std::set<TrackVideoType> j2k_seen;
        for (auto const& [format_name, format] : formatsOf(standard)) {
            SCOPED_TRACE(said(toString(standard)) + ", " + format_name);
            // Of JPEG 2000's many bit rates one for each standard; key formats don't tell luma and chroma.
            bool const j2k = format.video_type == TrackVideoType::j2k;
            if (format.creatable == 0) continue;
            // What depends on the rate alone, at a few standards.
            if (format.category != TrackCategory::video && static_cast<std::uint32_t>(standard) % 9 != 2) continue;
            if (j2k && (format.luma_size == 0 || !j2k_seen.insert(format.video_type).second)) continue;
            unsigned int clip = 0;
            ASSERT_EQ(create(name, standard, format, clip), "");
            ++created;
            unsigned int const track = clip_get_track(clip, 0);
            EXPECT_EQ(track_category(track), format.category);
            EXPECT_EQ(track_video_type(track), format.video_type);
            EXPECT_EQ(track_audio_type(track), format.audio_type);
            EXPECT_EQ(track_avc_flavor(track), format.avc_flavor);
            EXPECT_EQ(track_avc_class(track), format.avc_class);
            EXPECT_EQ(track_audio_subchannel_count(track), format.subchannels);
            EXPECT_EQ(track_unit_size(track), format.unit_size);
            EXPECT_EQ(track_fields_per_unit(track), format.fields_per_unit);
            EXPECT_EQ(track_j2k_video_luma_size(track), format.luma_size);
            EXPECT_EQ(track_j2k_video_chroma_size(track), format.chroma_size);
            clip_close(clip);
            std::filesystem::remove(folder.path / "clip");
        }
    }
    EXPECT_GT(created, 27u * 2);
}

TEST(TrackFormats, EveryStandardAndKindThatIsToldCanBeCreatedAndNoOther) {
    ScratchPath folder;
    auto const name = folder.name("clip");
    unsigned int refused = 0;
    VideoStandard standard{};
    for (bool more = getfirst(standard); more; more = getnext(standard))
        for (TrackVideoType const type : VIDEO_TYPES) {
            FormatInfo wanted{};
            wanted.category = TrackCategory::video;
            wanted.video_type = type;
            unsigned int clip = 0;
            bool const told = format_video_creatable(standard, type);
            EXPECT_EQ(create(name, standard, wanted, clip), told ? "" : "Internal error")
                << said(toString(standard)) << ", " << said(toString(type));
            bool listed = false;
            for (auto const& [format_name, format] : formatsOf(standard))
                listed |= format.creatable != 0 && format.category == TrackCategory::video && format.video_type == type;
            EXPECT_EQ(listed, told) << said(toString(standard)) << ", " << said(toString(type));
            if (!told) ++refused;
            clip_close(clip);
        }
    EXPECT_EQ(refused, 22u) << "of 81 pairs";
}

TEST(TrackFormats, Examples) {
    auto const formats = formatsOf(VideoStandard::s1080i_50);
    ASSERT_TRUE(formats.contains("avci100-1080i"));
    EXPECT_EQ(formats.at("avci100-1080i").unit_size, 568832u);
    EXPECT_EQ(formats.at("avci100-1080i").fields_per_unit, 2u);
    EXPECT_EQ(formats.at("avci100-1080i").avc_flavor, AVCFlavor::avc_intra);
    EXPECT_EQ(formats.at("avci100-1080i").creatable, 1u);
    EXPECT_EQ(formats.at("avci50-1080i").creatable, 0u) << "opened, never created";
    EXPECT_EQ(formats.at("dv100-1080k").category, TrackCategory::key);
    EXPECT_EQ(formats.at("auk14").creatable, 0u);
    EXPECT_EQ(formats.at("auk").unit_size, 8u * 4096);
    EXPECT_EQ(formats.at("tc1").unit_size, 512u);
    EXPECT_EQ(formats.at("tc1").creatable, 0u);
    EXPECT_EQ(formats.at("tc2").creatable, 1u);
    EXPECT_EQ(formatsOf(VideoStandard::s625i_50).at("dv25").creatable, 0u);
    EXPECT_EQ(formatsOf(VideoStandard::s4K_50).at("xavc4K_480").creatable, 0u);
    EXPECT_EQ(formatsOf(VideoStandard::s4K_50).at("avci100-4Kp").creatable, 1u);
}

TEST(TrackFormats, UnknownStandardsAndNamesHaveNone) {
    FormatInfo info;
    for (std::uint32_t value : {0u, 28u, 0xFFFFFFFFu}) {
        EXPECT_EQ(format_name(VideoStandard{value}, 0), nullptr);
        info.unit_size = 77;
        EXPECT_FALSE(format_info(VideoStandard{value}, L"auk", &info));
        EXPECT_EQ(info.unit_size, 0u);
        for (TrackVideoType const type : VIDEO_TYPES)
            EXPECT_FALSE(format_video_creatable(VideoStandard{value}, type));
    }
    for (wchar_t const* name : {L"", L"AUK", L"auk ", L"dv50", L"avci100-720p", static_cast<wchar_t const*>(nullptr)}) {
        info.unit_size = 77;
        EXPECT_FALSE(format_info(VideoStandard::s1080i_50, name, &info)) << said(name);
        EXPECT_EQ(info.unit_size, 0u);
    }
    EXPECT_TRUE(format_info(VideoStandard::s1080i_50, L"auk", nullptr));
    EXPECT_EQ(format_name(VideoStandard::s1080i_50, 0xFFFFFFFFu), nullptr);
    EXPECT_FALSE(format_video_creatable(VideoStandard::s1080i_50, TrackVideoType::none));
    EXPECT_FALSE(format_video_creatable(VideoStandard::s1080i_50, TrackVideoType{4}));
}

TEST(TrackFormats, TextsOfWhatATrackHolds) {
    char const* const categories[] = {"", "video", "key", "audio", "timecode", ""};
    for (std::uint32_t value = 0; value < 6; ++value)
        EXPECT_SAYS(toString(TrackCategory{value}), categories[value]);
    char const* const video[] = {"", "JPEG 2000", "DV", "AVC", ""};
    for (std::uint32_t value = 0; value < 5; ++value)
        EXPECT_SAYS(toString(TrackVideoType{value}), video[value]);
    char const* const audio[] = {"", "hemlock", ""};
    for (std::uint32_t value = 0; value < 3; ++value)
        EXPECT_SAYS(toString(TrackAudioType{value}), audio[value]);
    char const* const flavors[] = {"", "XAVC", "AVC-Intra", ""};
    for (std::uint32_t value = 0; value < 4; ++value)
        EXPECT_SAYS(toString(AVCFlavor{value}), flavors[value]);
    EXPECT_EQ(toString(TrackCategory{0xFFFFFFFFu}), nullptr);
    EXPECT_EQ(toString(TrackCategory::key), toString(TrackCategory::key));
}

}  // namespace
}  // namespace KelvonClip
