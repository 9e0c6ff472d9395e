// Creating clips through the exports.

#include <filesystem>
#include <string>
#include <vector>

#include <kelvonclip/info_j2k.h>

#include "public/public_support.h"
#include "support/clip_image.h"
#include "support/scratch_path.h"

namespace KelvonClip {
namespace {

using namespace test;

constexpr auto STANDARD = VideoStandard::s1080i_50;

struct Creation {
    ScratchPath folder;
    std::wstring name = folder.name("clip");
    unsigned int creation = 0, clip = 0;

    explicit Creation(VideoStandard standard = STANDARD) { EXPECT_OK(create_begin(name.c_str(), standard, &creation)); }
    ~Creation() { clip_close(clip); }
    wchar_t const* finish() { return create_finish(creation, &clip); }
};

TEST(CreateBegin, MessagesComeInTheirOrder) {
    unsigned int creation = 77, other = 77;
    auto const none = VideoStandard::none;
    EXPECT_SAYS(create_begin(L"", none, nullptr), "Invalid filename");
    EXPECT_SAYS(create_begin(nullptr, none, nullptr), "Invalid filename");
    EXPECT_SAYS(create_begin(L"clip", none, nullptr), "Invalid handle pointer");
    EXPECT_SAYS(create_begin(L"clip", none, &creation), "Invalid video standard");
    EXPECT_SAYS(create_begin(L"clip", static_cast<VideoStandard>(28), &creation), "Invalid video standard");
    EXPECT_EQ(creation, 77u);
    EXPECT_OK(create_begin(L"clip", STANDARD, &creation));
    EXPECT_SAYS(create_begin(L"clip", none, &other), "Invalid video standard");
    EXPECT_SAYS(create_begin(L"clip", STANDARD, &other), "Already creating clip with same name");
    EXPECT_EQ(other, 77u);
    EXPECT_OK(create_begin(L"Clip", STANDARD, &other)) << "names are compared exactly";
    EXPECT_EQ(other, creation + 1);
}

TEST(CreateConfigure, UnknownHandlesAreRefused) {
    Creation made;
    for (unsigned int handle : {0u, 99u, 0xFFFFFFFFu}) {
        EXPECT_SAYS(cfg_track_count_video(handle, 1), "Bad Handle");
        EXPECT_SAYS(cfg_track_count_key(handle, 1), "Bad Handle");
        EXPECT_SAYS(cfg_track_count_audio(handle, 1), "Bad Handle");
        EXPECT_SAYS(cfg_track_timecode(handle), "Bad Handle");
        EXPECT_SAYS(cfg_video_avci(handle), "Bad Handle");
        EXPECT_SAYS(cfg_video_dv(handle), "Bad Handle");
        EXPECT_SAYS(cfg_video_j2k(handle, 0xFFFFFFFF, 0, 0), "Bad Handle");
        EXPECT_SAYS(cfg_audio_hemlock(handle, 14), "Bad Handle");
        EXPECT_SAYS(cfg_clip_timecode2(handle, 0, false, false, false), "Bad create clip handle");
        EXPECT_SAYS(cfg_clip_timecode(made.creation, handle), "Bad create clip handle");
        EXPECT_SAYS(create_finish(handle, nullptr), "Bad Handle");
    }
    EXPECT_SAYS(cfg_clip_timecode(99, made.creation), "Bad clip handle");
    EXPECT_SAYS(cfg_clip_timecode(made.creation, made.creation), "Bad clip handle")
        << "a clip under creation is no open clip";
    EXPECT_EQ(clip_track_count(made.creation), 0u);
}

TEST(CreateConfigure, CountsAreSetOnceUnlessTheyAreZero) {
    Creation made;
    for (auto* set : {cfg_track_count_video, cfg_track_count_key, cfg_track_count_audio}) {
        EXPECT_OK(set(made.creation, 0));
        EXPECT_OK(set(made.creation, 0));
        EXPECT_OK(set(made.creation, 2));
        for (unsigned int again : {0u, 2u, 3u})
            EXPECT_SAYS(set(made.creation, again), "Track count can only be set once");
    }
    EXPECT_OK(cfg_track_timecode(made.creation));
    EXPECT_SAYS(cfg_track_timecode(made.creation), "Track count can only be set once");
}

TEST(CreateConfigure, VideoIsConfiguredOnceByAnyKind) {
    for (int first = 0; first < 3; ++first) {
        Creation made;
        EXPECT_OK(first == 0   ? cfg_video_avci(made.creation)
                  : first == 1 ? cfg_video_dv(made.creation)
                               : cfg_video_j2k(made.creation, 1000, 500, 1000));
        EXPECT_SAYS(cfg_video_avci(made.creation), "Video can only be configured once");
        EXPECT_SAYS(cfg_video_dv(made.creation), "Video can only be configured once");
        EXPECT_SAYS(cfg_video_j2k(made.creation, 0xFFFFFFFF, 0, 0), "Video can only be configured once");
    }
}

TEST(CreateConfigure, J2kSizesAreLimitedInTheirOrder) {
    Creation made;
    unsigned int const luma = j2k_video_luma_max_size(STANDARD), chroma = j2k_video_chroma_max_size(STANDARD),
                       key = j2k_key_max_size(STANDARD);
    EXPECT_SAYS(cfg_video_j2k(made.creation, luma + 1, chroma + 1, key + 1), "Luma size too big");
    EXPECT_SAYS(cfg_video_j2k(made.creation, luma, chroma + 1, key + 1), "Chroma size too big");
    EXPECT_SAYS(cfg_video_j2k(made.creation, luma, chroma, key + 1), "Key size too big");
    EXPECT_SAYS(cfg_video_j2k(made.creation, luma, 0, 0), "Internal error");
    EXPECT_OK(cfg_video_j2k(made.creation, luma, chroma, key)) << "refusals have changed nothing";
}

TEST(CreateConfigure, J2kRateIsTheSmallestThatHoldsTheSizes) {
    struct Row {
        unsigned int luma, chroma, key;
        unsigned int unit_size;  // of the opened video track
    };
    for (auto const& row : std::vector<Row>{{0, 0, 0, 65536},                     // 25 Mbit/s, the least
                                            {49152, 16384, 49152, 65536},         // just fits it
                                            {49153, 16384, 0, 77824},             // one byte of luma more: 30 Mbit/s
                                            {310272, 103424, 311296, 413696}}) {  // 165 Mbit/s, the greatest
        Creation made;
        EXPECT_OK(cfg_track_count_video(made.creation, 1));
        EXPECT_OK(cfg_video_j2k(made.creation, row.luma, row.chroma, row.key));
        ASSERT_OK(made.finish());
        EXPECT_EQ(track_unit_size(clip_get_track(made.clip, 0)), row.unit_size);
    }
}

TEST(CreateConfigure, HemlockTakesFourSubchannelCounts) {
    for (unsigned int count : {0u, 1u, 3u, 6u, 14u, 15u, 17u, 32u, 0xFFFFFFFFu}) {
        Creation made;
        EXPECT_SAYS(cfg_audio_hemlock(made.creation, count), "Bad subchannel count") << count;
    }
    for (unsigned int count : {2u, 4u, 8u, 16u}) {
        Creation made;
        EXPECT_OK(cfg_audio_hemlock(made.creation, count));
        EXPECT_SAYS(cfg_audio_hemlock(made.creation, 3), "Audio can only be configured once");
        EXPECT_OK(cfg_track_count_audio(made.creation, 1));
        ASSERT_OK(made.finish());
        EXPECT_EQ(track_audio_subchannel_count(clip_get_track(made.clip, 0)), count);
        EXPECT_EQ(track_unit_size(clip_get_track(made.clip, 0)), count * 4096);
    }
}

TEST(CreateFinish, MessagesComeInTheirOrderAndLeaveTheCreationInPlace) {
    Creation made;
    EXPECT_OK(cfg_track_count_video(made.creation, 1));
    EXPECT_OK(cfg_track_count_key(made.creation, 1));
    EXPECT_OK(cfg_track_count_audio(made.creation, 1));
    EXPECT_SAYS(create_finish(made.creation, nullptr), "Video tracks added but video not configured");
    EXPECT_OK(cfg_video_avci(made.creation));
    EXPECT_SAYS(create_finish(made.creation, nullptr), "Audio tracks added but audio not configured");
    EXPECT_OK(cfg_audio_hemlock(made.creation, 2));

    writeFile(made.name, headerArea(clipHeaderText("1080i 50Hz", "")));
    unsigned int open = 0;
    ASSERT_OK(clip_open(made.name.c_str(), &open));
    EXPECT_SAYS(create_finish(made.creation, nullptr), "Can't create on top of file which is already open");
    clip_close(open);
    EXPECT_SAYS(create_finish(made.creation, nullptr), "Invalid clip handle");
    ASSERT_OK(clip_open(made.name.c_str(), &open)) << "nothing was created: the old clip is still there";
    EXPECT_EQ(clip_track_count(open), 0u);
    clip_close(open);

    EXPECT_OK(made.finish());
    EXPECT_SAYS(create_finish(made.creation, &open), "Bad Handle");
    EXPECT_EQ(clip_track_count(made.clip), 3u);
}

TEST(CreateFinish, KeyTracksAloneNeedAVideoFormatToo) {
    Creation made;
    EXPECT_OK(cfg_track_count_key(made.creation, 1));
    EXPECT_SAYS(made.finish(), "Key tracks added but video not configured");
    EXPECT_OK(cfg_video_avci(made.creation));
    EXPECT_OK(made.finish());
    EXPECT_EQ(track_category(clip_get_track(made.clip, 0)), TrackCategory::key);
}

TEST(CreateFinish, FileThatIsOpenUnderAnotherSpellingIsNotOverwritten) {
    Creation made;
    std::wstring const spelling = made.folder.name("./clip");
    writeFile(made.name, headerArea(clipHeaderText("1080i 50Hz", "")));
    unsigned int open = 0;
    ASSERT_OK(clip_open(spelling.c_str(), &open));
    EXPECT_NE(said(made.finish()), "") << "the host knows that the file is open";
    EXPECT_EQ(clip_get_video_standard(open), VideoStandard::s1080i_50);
    clip_close(open);
    EXPECT_OK(made.finish());
}

// The file is not open as a clip, but holds the data of an open clip's track.
TEST(CreateFinish, FileThatHoldsATrackOfAnOpenClipIsNotOverwritten) {
    Creation made;
    std::string const essence = patternBytes(8 * 4096, 1);
    writeFile(made.name, essence);
    std::string const vfile = element("VFile", element("FileName", "clip"));
    auto const owner = made.folder.name("owner");
    writeFile(owner, headerArea(clipHeaderText("1080i 50Hz", trackMeta("auk", vfile))));
    unsigned int open = 0;
    ASSERT_OK(clip_open(owner.c_str(), &open));
    unsigned int const track = clip_get_track(open, 0);
    EXPECT_SAYS(made.finish(), "Can't create file with same filename as file which is already open");
    std::string back(essence.size(), 'x');
    EXPECT_OK(track_read(track, 0, back.data()));
    EXPECT_EQ(back, essence);
    clip_close(open);
    EXPECT_OK(made.finish()) << "the creation is still in place";
}

TEST(CreateFinish, FolderThatDoesNotExistIsTheHostsError) {
    ScratchPath folder;
    unsigned int creation = 0, clip = 77;
    ASSERT_OK(create_begin(folder.name("absent/clip").c_str(), STANDARD, &creation));
    EXPECT_NE(said(create_finish(creation, &clip)), "");
    EXPECT_EQ(clip, 77u);
    std::filesystem::create_directory(folder.path / "absent");
    EXPECT_OK(create_finish(creation, &clip));
    clip_close(clip);
}

TEST(CreateFinish, DvWhereTheStandardHasNoneIsAnInternalError) {
    Creation made(VideoStandard::s1080p_23_98);
    EXPECT_OK(cfg_track_count_video(made.creation, 1));
    EXPECT_OK(cfg_video_dv(made.creation));
    EXPECT_SAYS(made.finish(), "Internal error");
    EXPECT_FALSE(std::filesystem::exists(made.folder.path / "clip")) << "refused before a file is made";
}

TEST(CreateFinish, DvIn525LinesIsDv50) {
    Creation made(VideoStandard::s525i_59_94);
    EXPECT_OK(cfg_track_count_video(made.creation, 1));
    EXPECT_OK(cfg_video_dv(made.creation));
    ASSERT_OK(made.finish());
    unsigned int const track = clip_get_track(made.clip, 0);
    EXPECT_EQ(track_video_type(track), TrackVideoType::dv);
    EXPECT_EQ(track_unit_size(track), 240000u);
    EXPECT_EQ(track_fields_per_unit(track), 2u);
}

TEST(CreateFinish, ImpossibleTrackCountsAreRefusedAtOnce) {
    for (auto* set : {cfg_track_count_video, cfg_track_count_key, cfg_track_count_audio}) {
        Creation made;
        EXPECT_OK(set(made.creation, set == cfg_track_count_audio ? 0x7FFFFFFFu : 0xFFFFFFFFu));
        EXPECT_OK(cfg_video_avci(made.creation));
        EXPECT_OK(cfg_audio_hemlock(made.creation, 2));
        EXPECT_SAYS(made.finish(), "Error creating header text");
        EXPECT_FALSE(std::filesystem::exists(made.folder.path / "clip"));
    }
}

TEST(CreateFinish, AudioCountsFrom2To31OnMakeNoTrack) {
    Creation made;
    EXPECT_OK(cfg_track_count_audio(made.creation, 0x80000000));
    ASSERT_OK(made.finish());
    EXPECT_EQ(clip_track_count(made.clip), 0u);
}

TEST(CreateFinish, ClipWithoutTracksIsZeroBased) {
    Creation made;
    ASSERT_OK(made.finish());
    EXPECT_EQ(clip_track_count(made.clip), 0u);
    EXPECT_EQ(clip_get_length(made.clip), 0u);
    unsigned int timecode = 7;
    bool drop_frame = true;
    EXPECT_OK(clip_get_timecode(made.clip, &timecode, &drop_frame));
    EXPECT_EQ(timecode, 0u);
    EXPECT_FALSE(drop_frame);
    EXPECT_TRUE(clip_timecode_valid(made.clip));
    EXPECT_FALSE(clip_get_is_child_clip(made.clip));
    EXPECT_EQ(clip_get_last_content_edit(made.clip), clip_get_last_meta_edit(made.clip));
    EXPECT_GT(clip_get_last_content_edit(made.clip), 1600000000u);
    EXPECT_EQ(clip_get_last_played(made.clip), 0u);
}

TEST(CreateFinish, EveryStandardMakesAClip) {
    VideoStandard standard;
    for (bool more = getfirst(standard); more; more = getnext(standard)) {
        Creation made(standard);
        EXPECT_OK(cfg_track_count_video(made.creation, 1));
        EXPECT_OK(cfg_track_count_audio(made.creation, 1));
        EXPECT_OK(cfg_track_timecode(made.creation));
        EXPECT_OK(cfg_audio_hemlock(made.creation, 8));
        EXPECT_OK(cfg_video_j2k(made.creation, 0, 0, 0));
        ASSERT_OK(made.finish());
        EXPECT_EQ(clip_get_video_standard(made.clip), standard);
        EXPECT_EQ(clip_track_count(made.clip), 3u);
    }
}

TEST(CreateCancel, FreesTheNameAndEndsTheHandle) {
    ScratchPath folder;
    auto const name = folder.name("clip");
    unsigned int creation = 0, again = 0, clip = 0;
    ASSERT_OK(create_begin(name.c_str(), STANDARD, &creation));
    EXPECT_SAYS(create_begin(name.c_str(), STANDARD, &again), "Already creating clip with same name");
    ASSERT_OK(create_cancel(creation));
    EXPECT_FALSE(std::filesystem::exists(folder.path / "clip"));
    EXPECT_SAYS(create_cancel(creation), "Bad Handle");
    EXPECT_SAYS(cfg_track_timecode(creation), "Bad Handle");
    EXPECT_SAYS(create_finish(creation, &clip), "Bad Handle");
    ASSERT_OK(create_begin(name.c_str(), STANDARD, &again));
    ASSERT_OK(create_finish(again, &clip));
    EXPECT_SAYS(create_cancel(again), "Bad Handle") << "it has succeeded";
    EXPECT_SAYS(create_cancel(clip), "Bad Handle") << "an open clip is no creation";
    EXPECT_EQ(clip_track_count(clip), 0u);
    clip_close(clip);
}

TEST(CreateCancel, EndsACreationThatFailed) {
    ScratchPath folder;
    auto const name = folder.name("clip");
    unsigned int creation = 0, clip = 0;
    ASSERT_OK(create_begin(name.c_str(), VideoStandard::s1080p_23_98, &creation));
    ASSERT_OK(cfg_track_count_video(creation, 1));
    ASSERT_OK(cfg_video_dv(creation));
    EXPECT_SAYS(create_finish(creation, &clip), "Internal error");
    ASSERT_OK(create_cancel(creation));
    ASSERT_OK(create_begin(name.c_str(), STANDARD, &creation));
    ASSERT_OK(create_finish(creation, &clip));
    clip_close(clip);
}

TEST(CreateCancel, UnknownHandlesAreRefused) {
    for (unsigned int handle : {0u, 99u, 0xFFFFFFFFu})
        EXPECT_SAYS(create_cancel(handle), "Bad Handle");
}

TEST(CreateTimecode, SourcesAndValues) {
    struct Row {
        bool timecode_track, tc0_striped;
        std::string message;
        unsigned int timecode;
    };
    for (auto const& row : std::vector<Row>{{false, false, "", 1234},
                                            {true, false, "TC in track", 0},
                                            {false, true, "", 1234},
                                            {true, true, "", 1234}})
        for (bool drop : {false, true}) {
            Creation made(VideoStandard::s1080i_59_94);
            EXPECT_OK(cfg_clip_timecode2(made.creation, 1234, drop, row.timecode_track, row.tc0_striped));
            ASSERT_OK(made.finish());
            unsigned int timecode = 7;
            bool drop_frame = !drop;
            EXPECT_SAYS(clip_get_timecode(made.clip, &timecode, &drop_frame), row.message);
            EXPECT_EQ(timecode, row.timecode);
            // The header of a clip with a timecode track has no drop-frame flag.
            EXPECT_EQ(drop_frame, drop && row.message.empty());
        }
}

TEST(CreateTimecode, SourcesOfEarlierCallsStaySet) {
    Creation made(VideoStandard::s1080i_59_94);
    EXPECT_OK(cfg_clip_timecode2(made.creation, 1, true, true, false));
    EXPECT_OK(cfg_clip_timecode2(made.creation, 2, false, false, false));
    EXPECT_OK(cfg_clip_timecode2(made.creation, 3, true, true, false));
    ASSERT_OK(made.finish());
    unsigned int timecode = 0;
    bool drop_frame = false;
    EXPECT_OK(clip_get_timecode(made.clip, &timecode, &drop_frame)) << "striped comes before the track";
    EXPECT_EQ(timecode, 3u);
    EXPECT_TRUE(drop_frame);
}

TEST(CreateTimecode, SettingsOfAnOpenClipAreCopied) {
    for (int source = 0; source < 3; ++source) {
        Creation model(VideoStandard::s1080i_59_94), made(VideoStandard::s1080i_59_94);
        EXPECT_OK(cfg_clip_timecode2(model.creation, 500, true, source == 1, source == 2));
        ASSERT_OK(model.finish());
        EXPECT_OK(cfg_clip_timecode2(made.creation, 9, false, false, false)) << "is replaced";
        EXPECT_OK(cfg_clip_timecode(model.clip, made.creation));
        ASSERT_OK(made.finish());
        unsigned int expected = 0, timecode = 0;
        bool expected_drop = false, drop_frame = false;
        std::string const message = said(clip_get_timecode(model.clip, &expected, &expected_drop));
        EXPECT_SAYS(clip_get_timecode(made.clip, &timecode, &drop_frame), message);
        EXPECT_EQ(timecode, expected);
        EXPECT_EQ(drop_frame, expected_drop);
    }
}

TEST(CreateRecord, WhatIsRecordedComesBackAfterClosing) {
    ScratchPath folder;
    auto const name = folder.name("clip");
    unsigned int clip = createClip(name, {VideoStandard::s1080i_50, 1, 1, 2, 2, true});
    ASSERT_EQ(clip_track_count(clip), 5u);
    for (unsigned int unit = 0; unit < 7; ++unit)
        for (unsigned int index = 0; index < 5; ++index) {
            unsigned int const track = clip_get_track(clip, index);
            std::string const bytes = patternBytes(track_unit_size(track), unit * 8 + index);
            ASSERT_OK(track_write(track, unit, bytes.data(), static_cast<unsigned int>(bytes.size())));
        }
    EXPECT_EQ(clip_get_length(clip), 14u) << "seven frames of two fields";
    clip_close(clip);

    for (auto* open : {clip_open, clip_open_rw}) {
        ASSERT_OK(open(name.c_str(), &clip));
        ASSERT_EQ(clip_track_count(clip), 5u);
        for (unsigned int index = 0; index < 5; ++index) {
            unsigned int const track = clip_get_track(clip, index);
            ASSERT_EQ(track_length_in_units(track), 7u) << index;
            std::string bytes(track_unit_size(track), '\0');
            for (unsigned int unit = 0; unit < 7; ++unit) {
                ASSERT_OK(track_read(track, unit, bytes.data()));
                ASSERT_EQ(bytes, patternBytes(bytes.size(), unit * 8 + index)) << index << ' ' << unit;
            }
            ASSERT_OK(track_read(track, 7, bytes.data()));
            ASSERT_EQ(bytes, std::string(bytes.size(), '\0'));
        }
        clip_close(clip);
    }
}

TEST(CreateRecord, RecordingGoesOnAfterReopening) {
    ScratchPath folder;
    auto const name = folder.name("clip");
    unsigned int clip = createClip(name, {VideoStandard::s1080i_50, 0, 0, 1, 2, false});
    for (unsigned int unit = 0; unit < 12; ++unit) {
        unsigned int const track = clip_get_track(clip, 0);
        ASSERT_EQ(track_length_in_units(track), unit);
        ASSERT_OK(track_write(track, unit, patternBytes(8192, unit).data(), 8192));
        clip_close(clip);
        ASSERT_OK(clip_open_rw(name.c_str(), &clip));
    }
    std::string bytes(8192, '\0');
    for (unsigned int unit = 0; unit < 12; ++unit) {
        ASSERT_OK(track_read(clip_get_track(clip, 0), unit, bytes.data()));
        EXPECT_EQ(bytes, patternBytes(8192, unit));
    }
    clip_close(clip);
}

TEST(CreateRecord, CreatingOnTopOfAnOldClipStartsAfresh) {
    ScratchPath folder;
    auto const name = folder.name("clip");
    unsigned int clip = createClip(name, {VideoStandard::s1080i_50, 0, 0, 3, 2, false});
    ASSERT_OK(track_write(clip_get_track(clip, 2), 0, patternBytes(8192, 1).data(), 8192));
    clip_close(clip);
    clip = createClip(name, {VideoStandard::s720p_50, 0, 0, 1, 4, false});
    EXPECT_EQ(clip_track_count(clip), 1u);
    EXPECT_EQ(clip_get_length(clip), 0u);
    EXPECT_EQ(clip_get_video_standard(clip), VideoStandard::s720p_50);
    clip_close(clip);
}

}  // namespace
}  // namespace KelvonClip
