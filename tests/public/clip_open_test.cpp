// Opening, closing and querying clips through the exports.

#include <cstddef>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "public/public_support.h"
#include "support/clip_image.h"
#include "support/scratch_path.h"

namespace KelvonClip {
namespace {

using namespace test;

constexpr std::uint64_t UNIT = 8 * 4096;  // a unit of an "auk" track at 50Hz

std::string audioTrack(std::uint64_t start, std::uint64_t units) {
    return trackMeta("auk", rangeOfThisFile(start, units * UNIT));
}

// A clip file made by hand, and its handle.
struct HandMade {
    ScratchPath folder;
    std::wstring name = folder.name("clip");
    unsigned int clip = 0;

    explicit HandMade(std::string const& header, std::uint64_t data_bytes = 0) {
        writeFile(name, headerArea(header) + std::string(static_cast<std::size_t>(data_bytes), 'd'));
        EXPECT_OK(clip_open(name.c_str(), &clip));
    }
    ~HandMade() { clip_close(clip); }
};

TEST(ClipOpen, MessagesComeInTheirOrder) {
    unsigned int handle = 77;
    EXPECT_SAYS(clip_open(L"", nullptr), "Invalid filename");
    EXPECT_SAYS(clip_open(nullptr, &handle), "Invalid filename");
    EXPECT_SAYS(clip_open(L"clip", nullptr), "Invalid clip handle");
    EXPECT_SAYS(clip_open_rw(L"", nullptr), "Invalid filename");
    EXPECT_SAYS(clip_open_rw(nullptr, &handle), "Invalid filename");
    EXPECT_SAYS(clip_open_rw(L"clip", nullptr), "Invalid clip handle");
    EXPECT_EQ(handle, 77u);
}

TEST(ClipOpen, EqualTextsAreTheIdenticalPointer) {
    unsigned int handle = 0;
    EXPECT_EQ(clip_open(L"", &handle), clip_open_rw(L"", &handle));
    EXPECT_EQ(clip_open(L"clip", nullptr), clip_open(L"other", nullptr));
    EXPECT_EQ(clip_get_timecode(0, nullptr, nullptr), clip_get_timecode(99, nullptr, nullptr));
}

TEST(ClipOpen, FirstHandleIsOneAndTwoClipsAreConsecutive) {
    if (!inAProcessOfItsOwn()) GTEST_SKIP() << "holds in a fresh process only";
    ScratchPath folder;
    writeFile(folder.name("a"), headerArea(clipHeaderText("1080i 50Hz", "")));
    writeFile(folder.name("b"), headerArea(clipHeaderText("1080i 50Hz", "")));
    unsigned int a = 0, b = 0;
    ASSERT_OK(clip_open(folder.name("a").c_str(), &a));
    ASSERT_OK(clip_open(folder.name("b").c_str(), &b));
    EXPECT_EQ(a, 1u);
    EXPECT_EQ(b, 2u);
    clip_close(a);
    clip_close(b);
}

TEST(ClipOpen, SecondOpenSharesTheHandleUntilBothAreClosed) {
    HandMade made(clipHeaderText("1080i 50Hz", audioTrack(0, 1)), UNIT);
    unsigned int again = 0;
    ASSERT_OK(clip_open_rw(made.name.c_str(), &again));
    EXPECT_EQ(again, made.clip);
    unsigned int const track = clip_get_track(made.clip, 0);
    std::string unit(UNIT, 'x');
    EXPECT_SAYS(track_write(track, 0, unit.data(), 1), "Clip was opened in read-only mode") << "the first mode holds";
    clip_close(made.clip);
    EXPECT_EQ(clip_track_count(made.clip), 1u);
    clip_close(made.clip);
    EXPECT_EQ(clip_track_count(made.clip), 0u);
    EXPECT_EQ(track_category(track), TrackCategory::none);
}

TEST(ClipOpen, SameFileInTheOtherModeUnderAnotherNameIsOpenedForItself) {
    HandMade made(clipHeaderText("1080i 50Hz", ""));
    std::wstring const other_spelling = made.folder.name("./clip");
    unsigned int other = 0;
    ASSERT_OK(clip_open_rw(other_spelling.c_str(), &other));
    EXPECT_NE(other, made.clip);
    clip_close(other);
}

TEST(ClipOpen, UnknownHandlesGiveNeutralValues) {
    HandMade made(clipHeaderText("1080i 50Hz", audioTrack(0, 1)), UNIT);
    for (unsigned int handle : {0u, 99u, 0xFFFFFFFFu, clip_get_track(made.clip, 0)}) {
        EXPECT_TRUE(clip_get_is_child_clip(handle));
        EXPECT_EQ(clip_get_last_loaded(handle), 0u);
        EXPECT_EQ(clip_get_last_unloaded(handle), 0u);
        EXPECT_EQ(clip_get_last_played(handle), 0u);
        EXPECT_EQ(clip_get_last_meta_edit(handle), 0u);
        EXPECT_EQ(clip_get_last_content_edit(handle), 0u);
        EXPECT_EQ(clip_get_length(handle), 0u);
        EXPECT_FALSE(clip_timecode_valid(handle));
        EXPECT_EQ(clip_get_video_standard(handle), VideoStandard::none);
        EXPECT_EQ(clip_track_count(handle), 0u);
        EXPECT_EQ(clip_get_track(handle, 0), 0u);
        unsigned int timecode = 7;
        bool drop_frame = true;
        EXPECT_SAYS(clip_get_timecode(handle, &timecode, &drop_frame), "invalid clip handle");
        EXPECT_EQ(timecode, 7u);
        EXPECT_TRUE(drop_frame);
        clip_close(handle);
    }
    EXPECT_EQ(clip_track_count(made.clip), 1u);
}

TEST(ClipOpen, HeaderValuesComeBackUnchanged) {
    HandMade made(clipHeaderText("1080i 59.94Hz", "",
                                 element("ClipLastLoaded", "1") + element("ClipLastUnloaded", "2") +
                                     element("ClipLastPlayed", "18446744073709551615") +
                                     element("ClipLastMetaEdited", "4") + element("ClipLastContentEdited", "5")));
    EXPECT_EQ(clip_get_last_loaded(made.clip), 1u);
    EXPECT_EQ(clip_get_last_unloaded(made.clip), 2u);
    EXPECT_EQ(clip_get_last_played(made.clip), 0xFFFFFFFFFFFFFFFFu);
    EXPECT_EQ(clip_get_last_meta_edit(made.clip), 4u);
    EXPECT_EQ(clip_get_last_content_edit(made.clip), 5u);
    EXPECT_EQ(clip_get_video_standard(made.clip), VideoStandard::s1080i_59_94);
    EXPECT_FALSE(clip_get_is_child_clip(made.clip));
    EXPECT_TRUE(clip_timecode_valid(made.clip));
}

TEST(ClipOpen, ChildClipOpensWithoutTracksAndStandard) {
    HandMade made(childHeaderText(element("ClipLastPlayed", "9") + element("TimecodeSource", "striped") +
                                  element("Striped_TC_Offset", "50")));
    EXPECT_TRUE(clip_get_is_child_clip(made.clip));
    EXPECT_EQ(clip_get_last_played(made.clip), 9u);
    EXPECT_EQ(clip_track_count(made.clip), 0u);
    EXPECT_EQ(clip_get_length(made.clip), 0u);
    EXPECT_EQ(clip_get_video_standard(made.clip), VideoStandard::none);
    unsigned int timecode = 0;
    EXPECT_OK(clip_get_timecode(made.clip, &timecode, nullptr));
    EXPECT_EQ(timecode, 50u);
}

TEST(ClipOpen, LengthIsThatOfTheLongestTrackInWholeFrames) {
    HandMade odd(clipHeaderText("1080i 50Hz", audioTrack(0, 2) + audioTrack(2 * UNIT, 7) + audioTrack(0, 1)),
                 10 * UNIT);
    EXPECT_EQ(clip_get_length(odd.clip), 6u) << "seven fields are six in whole frames";
    HandMade even(clipHeaderText("1080i 50Hz", audioTrack(0, 8)), 10 * UNIT);
    EXPECT_EQ(clip_get_length(even.clip), 8u);
    HandMade one(clipHeaderText("1080i 50Hz", audioTrack(0, 1)), 10 * UNIT);
    EXPECT_EQ(clip_get_length(one.clip), 0u);
    HandMade none(clipHeaderText("1080i 50Hz", ""));
    EXPECT_EQ(clip_get_length(none.clip), 0u);
}

TEST(ClipOpen, TracksFollowTheHeaderAndIndicesEndAtTheCount) {
    HandMade made(clipHeaderText("1080i 50Hz", audioTrack(0, 1) + trackMeta("tc2", rangeOfThisFile(0, UNIT)) +
                                                   element("TrackMeta", "") + audioTrack(0, 3)),
                  4 * UNIT);
    ASSERT_EQ(clip_track_count(made.clip), 3u) << "the track without type and data is left out";
    EXPECT_EQ(track_category(clip_get_track(made.clip, 0)), TrackCategory::audio);
    EXPECT_EQ(track_category(clip_get_track(made.clip, 1)), TrackCategory::timecode);
    EXPECT_EQ(track_length_in_units(clip_get_track(made.clip, 2)), 3u);
    EXPECT_EQ(clip_get_track(made.clip, 1), clip_get_track(made.clip, 0) + 1);
    EXPECT_EQ(clip_get_track(made.clip, 3), 0u);
    EXPECT_EQ(clip_get_track(made.clip, 0xFFFFFFFF), 0u);
}

TEST(ClipOpen, TimecodeSources) {
    struct Row {
        std::string elements, message;
        unsigned int timecode;
        bool drop_frame, valid;
    };
    unsigned int const untouched = 7;
    std::string const value = element("Striped_TC_Offset", "50") + element("Striped_TC_DF", "df");
    for (auto const& row : std::vector<Row>{
             {element("TimecodeSource", "striped") + value, "", 50, true, true},
             {element("TimecodeSource", "tc0striped") + value + element("RecTCStripe", "100"), "", 100, true, true},
             {element("TimecodeSource", "striped"), "", 0, false, true},
             {element("TimecodeSource", "timecodetrack") + value, "TC in track", 0, true, true},
             {element("TimecodeSource", "zerobased") + value, "", 0, true, true},
             {"", "", 0, false, true},
             {element("TimecodeSource", "Striped") + value, "Timecode not found in header", untouched, false, false}}) {
        HandMade made(clipHeaderText("1080i 59.94Hz", "", row.elements));
        unsigned int timecode = untouched;
        bool drop_frame = false;
        EXPECT_SAYS(clip_get_timecode(made.clip, &timecode, &drop_frame), row.message) << row.elements;
        EXPECT_EQ(timecode, row.timecode) << row.elements;
        EXPECT_EQ(drop_frame, row.drop_frame) << row.elements;
        EXPECT_EQ(clip_timecode_valid(made.clip), row.valid) << row.elements;
        EXPECT_SAYS(clip_get_timecode(made.clip, nullptr, nullptr), row.message);
    }
}

TEST(ClipOpen, FilesThatAreNoClipsAreRefused) {
    ScratchPath folder;
    unsigned int handle = 77;
    writeFile(folder.name("empty"), "");
    writeFile(folder.name("short"), headerArea(clipHeaderText("1080i 50Hz", "")).substr(1));
    writeFile(folder.name("spaces"), headerArea(""));
    writeFile(folder.name("standard"), headerArea(clipHeaderText("1080i 51Hz", "")));
    writeFile(folder.name("neither"), headerArea(element("KelvonClipMeta1", "")));
    EXPECT_SAYS(clip_open(folder.name("empty").c_str(), &handle), "Read failed");
    EXPECT_SAYS(clip_open(folder.name("short").c_str(), &handle), "Read failed");
    for (char const* name : {"spaces", "standard", "neither"})
        EXPECT_SAYS(clip_open(folder.name(name).c_str(), &handle), "XML parsing error in clip header") << name;
    EXPECT_NE(said(clip_open(folder.name("absent").c_str(), &handle)), "");
    EXPECT_EQ(handle, 77u);
    if (!inAProcessOfItsOwn()) GTEST_SKIP() << "the rest holds in a fresh process only";
    HandMade made(clipHeaderText("1080i 50Hz", ""));
    EXPECT_EQ(made.clip, 1u) << "failed openings take no handle";
}

TEST(ClipOpen, ClosedClipOpensAgainInEitherMode) {
    ScratchPath folder;
    writeFile(folder.name("clip"), headerArea(clipHeaderText("1080i 50Hz", "")));
    unsigned int last = 0;
    for (int round = 0; round < 6; ++round) {
        unsigned int handle = 0;
        ASSERT_OK((round % 2 == 0 ? clip_open : clip_open_rw)(folder.name("clip").c_str(), &handle));
        EXPECT_GT(handle, last);
        last = handle;
        clip_close(handle);
    }
}

TEST(ClipOpen, HeadersNestedAsDeepAsTheyCanAreSurvived) {
    std::string open_tags, close_tags;
    while (open_tags.size() + close_tags.size() < 30000) {
        open_tags += "<VFile><Grow>";
        close_tags = "</Grow></VFile>" + close_tags;
    }
    HandMade made(
        clipHeaderText("1080i 50Hz", element("TrackMeta", element("TrackType", "auk") + open_tags + close_tags)));
    EXPECT_EQ(clip_track_count(made.clip), 0u);
}

}  // namespace
}  // namespace KelvonClip
