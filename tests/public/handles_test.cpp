// One space of handle numbers for everything. Each case needs a process of its own, which the test runner gives it.

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

TEST(Handles, OfOneKindAreUnknownAsAnother) {
    ScratchPath folder;
    unsigned int creation = 0;
    ASSERT_OK(create_begin(folder.name("pending").c_str(), VideoStandard::s1080i_50, &creation));
    unsigned int const clip = createClip(folder.name("clip"), {VideoStandard::s1080i_50, 0, 0, 1, 2, false});
    unsigned int const track = clip_get_track(clip, 0);
    for (unsigned int not_a_clip : {creation, track}) {
        EXPECT_EQ(clip_track_count(not_a_clip), 0u);
        clip_close(not_a_clip);
    }
    for (unsigned int not_a_track : {creation, clip})
        EXPECT_SAYS(track_read(not_a_track, 0, nullptr), "Bad Handle");
    for (unsigned int not_a_creation : {clip, track})
        EXPECT_SAYS(cfg_track_timecode(not_a_creation), "Bad Handle");
    EXPECT_EQ(clip_track_count(clip), 1u);
    EXPECT_OK(cfg_track_timecode(creation));
    clip_close(clip);
}

}  // namespace
}  // namespace KelvonClip
