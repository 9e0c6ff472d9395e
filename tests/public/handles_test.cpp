// The common space of handle numbers. Each case needs a fresh process, which the test runner provides.

#include <cstdint>

#include <kelvonclip/seq_read.h>
#include <kelvonclip/seq_write.h>

#include "public/public_support.h"
#include "support/clip_image.h"
#include "support/scratch_path.h"

namespace KelvonClip {
namespace {

using namespace test;

#define NEEDS_A_FRESH_PROCESS()                                                                                        \
    if (!inAProcessOfItsOwn()) GTEST_SKIP() << "holds in a fresh process only"

TEST(Handles, RiseByOneAcrossClipsTracksAndCreations) {
    NEEDS_A_FRESH_PROCESS();
    ScratchPath folder;
    unsigned int creation = 0, clip = 0, second = 0;
    ASSERT_OK(create_begin(folder.name("clip").c_str(), VideoStandard::s1080i_50, &creation));
    EXPECT_EQ(creation, 1u);
    ASSERT_OK(cfg_track_count_audio(creation, 2));
    ASSERT_OK(cfg_audio_hemlock(creation, 2));
    ASSERT_OK(create_finish(creation, &clip));
    EXPECT_EQ(clip, 2u);
    EXPECT_EQ(clip_get_track(clip, 1), 4u) << "all tracks get their handles when the first is asked for";
    EXPECT_EQ(clip_get_track(clip, 0), 3u);
    ASSERT_OK(create_begin(folder.name("other").c_str(), VideoStandard::s1080i_50, &second));
    EXPECT_EQ(second, 5u);
    clip_close(clip);
    ASSERT_OK(clip_open(folder.name("clip").c_str(), &clip));
    EXPECT_EQ(clip, 6u) << "numbers given back are not issued again";
    EXPECT_EQ(clip_track_count(clip), 2u);
    EXPECT_EQ(clip_get_track(clip, 0), 7u);
    clip_close(clip);
}

TEST(Handles, OpeningFailuresTakeNone) {
    NEEDS_A_FRESH_PROCESS();
    ScratchPath folder;
    writeFile(folder.name("damaged"), headerArea("<KelvonClipMeta1>"));
    writeFile(folder.name("good"), headerArea(clipHeaderText("1080i 50Hz", "")));
    unsigned int handle = 0;
    EXPECT_SAYS(clip_open(folder.name("damaged").c_str(), &handle), "XML parsing error in clip header");
    EXPECT_NE(said(clip_open(folder.name("absent").c_str(), &handle)), "");
    EXPECT_SAYS(create_begin(L"", VideoStandard::s1080i_50, &handle), "Invalid filename");
    ASSERT_OK(clip_open(folder.name("good").c_str(), &handle));
    EXPECT_EQ(handle, 1u);
    clip_close(handle);
}

// Calls every function that takes a handle with a handle of each of the other kinds.
TEST(Handles, OfOneKindAreUnknownAsAnother) {
    ScratchPath folder;
    unsigned int creation = 0, reader = 0, writer = 0;
    ASSERT_OK(create_begin(folder.name("pending").c_str(), VideoStandard::s1080i_50, &creation));
    unsigned int const clip = createClip(folder.name("clip"), {VideoStandard::s1080i_50, 0, 0, 1, 2, false});
    unsigned int const track = clip_get_track(clip, 0);
    ASSERT_OK(seqread_begin(track, &reader));
    ASSERT_OK(seqwrite_begin(track, &writer));

    char unit[8] = {};
    bool drop_frame = true;
    unsigned int out = 77;
    for (unsigned int not_a_clip : {creation, track, reader, writer}) {
        EXPECT_TRUE(clip_get_is_child_clip(not_a_clip));
        for (auto* time : {clip_get_last_loaded, clip_get_last_unloaded, clip_get_last_played, clip_get_last_meta_edit,
                           clip_get_last_content_edit})
            EXPECT_EQ(time(not_a_clip), 0u);
        EXPECT_EQ(clip_get_length(not_a_clip), 0u);
        EXPECT_SAYS(clip_get_timecode(not_a_clip, &out, &drop_frame), "invalid clip handle");
        EXPECT_FALSE(clip_timecode_valid(not_a_clip));
        EXPECT_EQ(clip_get_video_standard(not_a_clip), VideoStandard::none);
        EXPECT_EQ(clip_track_count(not_a_clip), 0u);
        EXPECT_EQ(clip_get_track(not_a_clip, 0), 0u);
        EXPECT_SAYS(cfg_clip_timecode(not_a_clip, creation), "Bad clip handle");
        clip_close(not_a_clip);
    }
    for (unsigned int not_a_track : {creation, clip, reader, writer}) {
        EXPECT_EQ(track_category(not_a_track), TrackCategory::none);
        EXPECT_EQ(track_video_type(not_a_track), TrackVideoType::none);
        EXPECT_EQ(track_audio_type(not_a_track), TrackAudioType::none);
        EXPECT_EQ(track_avc_flavor(not_a_track), AVCFlavor::none);
        EXPECT_EQ(track_get_video_standard(not_a_track), VideoStandard::none);
        for (auto* number : {track_audio_subchannel_count, track_avc_class, track_j2k_video_size, track_j2k_key_size,
                             track_j2k_video_luma_size, track_j2k_video_chroma_size, track_unit_size,
                             track_fields_per_unit, track_length_in_units, track_length_in_fields})
            EXPECT_EQ(number(not_a_track), 0u);
        EXPECT_SAYS(track_read(not_a_track, 0, unit), "Bad Handle");
        EXPECT_SAYS(track_write(not_a_track, 0, unit, 8), "Bad Handle");
        EXPECT_SAYS(track_get_timecode(not_a_track, 0, &out, &drop_frame), "Error using track handle");
        EXPECT_FALSE(track_valid_timecode(not_a_track, 0));
        EXPECT_SAYS(seqread_begin(not_a_track, &out), "Track does not use the hemlock audio codec");
        EXPECT_SAYS(seqwrite_begin(not_a_track, &out), "Track does not use the hemlock audio codec");
    }
    for (unsigned int not_a_creation : {clip, track, reader, writer}) {
        for (auto* count : {cfg_track_count_video, cfg_track_count_key, cfg_track_count_audio, cfg_audio_hemlock})
            EXPECT_SAYS(count(not_a_creation, 2), "Bad Handle");
        for (auto* choose : {cfg_track_timecode, cfg_video_avci, cfg_video_dv})
            EXPECT_SAYS(choose(not_a_creation), "Bad Handle");
        EXPECT_SAYS(cfg_video_j2k(not_a_creation, 1, 1, 1), "Bad Handle");
        EXPECT_SAYS(cfg_clip_timecode2(not_a_creation, 1, false, false, false), "Bad create clip handle");
        EXPECT_SAYS(cfg_clip_timecode(clip, not_a_creation), "Bad create clip handle");
        EXPECT_SAYS(create_finish(not_a_creation, &out), "Bad Handle");
    }
    std::int32_t* const skip[] = {nullptr, nullptr};
    for (unsigned int not_a_reader : {creation, clip, track, writer}) {
        EXPECT_SAYS(seqread_read(not_a_reader, skip, 1), "Invalid handle");
        EXPECT_EQ(seqread_samples_remaining(not_a_reader), 0u);
        EXPECT_EQ(seqread_subchannel_count(not_a_reader), 0u);
        seqread_finish(not_a_reader);
    }
    for (unsigned int not_a_writer : {creation, clip, track, reader}) {
        EXPECT_SAYS(seqwrite_write(not_a_writer, skip, 1), "Invalid handle");
        EXPECT_EQ(seqwrite_subchannel_count(not_a_writer), 0u);
        EXPECT_SAYS(seqwrite_finish(not_a_writer), "Invalid handle");
    }
    EXPECT_EQ(out, 77u);
    EXPECT_TRUE(drop_frame);

    // Everything is still there, and nothing has been configured.
    EXPECT_EQ(clip_track_count(clip), 1u);
    EXPECT_EQ(track_length_in_units(track), 0u);
    EXPECT_EQ(seqread_subchannel_count(reader), 2u);
    seqread_finish(reader);
    EXPECT_OK(seqwrite_finish(writer));
    EXPECT_OK(cfg_track_timecode(creation));
    EXPECT_OK(cfg_video_dv(creation));
    clip_close(clip);
}

}  // namespace
}  // namespace KelvonClip
