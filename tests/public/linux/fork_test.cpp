// A process that forks while it records: the child's copies are out of date and write nothing.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

#include <kelvonclip/seq_write.h>

#include "public/public_support.h"
#include "support/clip_image.h"
#include "support/scratch_path.h"

namespace KelvonClip {
namespace {

using namespace test;

constexpr unsigned int UNIT = 8192;  // two subchannels at 50Hz
constexpr unsigned int SAMPLES = 960;

std::string unitBytes(unsigned int unit) { return patternBytes(UNIT, unit); }

void append(unsigned int track, unsigned int first, unsigned int end) {
    for (unsigned int unit = first; unit < end; ++unit)
        ASSERT_OK(track_write(track, unit, unitBytes(unit).data(), UNIT));
}

void expectUnits(std::wstring const& name, unsigned int count) {
    unsigned int clip = 0;
    ASSERT_OK(clip_open(name.c_str(), &clip));
    unsigned int const track = clip_get_track(clip, 0);
    ASSERT_EQ(track_length_in_units(track), count);
    std::string back(UNIT, '\0');
    for (unsigned int unit = 0; unit < count; ++unit) {
        ASSERT_OK(track_read(track, unit, back.data()));
        ASSERT_EQ(back, unitBytes(unit)) << unit;
    }
    clip_close(clip);
}

// Runs `work` in a child that then calls exit(), which destroys static objects. Returns the exit code.
template <class Work>
int exitCodeOfChild(Work&& work) {
    pid_t const child = ::fork();
    if (child == 0) std::exit(work());
    int status = 0;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(Fork, AChildThatExitsLeavesTheParentsRecordingAlone) {
    ScratchPath folder;
    auto const name = folder.name("clip");
    unsigned int const clip = createClip(name, {VideoStandard::s1080i_50, 0, 0, 1, 2, false});
    unsigned int const track = clip_get_track(clip, 0);
    append(track, 0, 10);
    // The parent continues recording and closes the clip before the child ends.
    int go_on[2];
    ASSERT_EQ(::pipe(go_on), 0);
    pid_t const child = ::fork();
    if (child == 0) {
        char byte = 0;
        ::close(go_on[1]);
        (void)!::read(go_on[0], &byte, 1);
        std::exit(0);
    }
    ::close(go_on[0]);
    append(track, 10, 30);
    clip_close(clip);
    ::close(go_on[1]);
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    expectUnits(name, 30);
}

TEST(Fork, AChildCannotWriteWhatTheParentHasOpen) {
    ScratchPath folder;
    auto const name = folder.name("clip");
    unsigned int const clip = createClip(name, {VideoStandard::s1080i_50, 0, 0, 1, 2, false});
    unsigned int const track = clip_get_track(clip, 0);
    append(track, 0, 10);
    EXPECT_EQ(exitCodeOfChild(
                  [&] { return said(track_write(track, 3, unitBytes(77).data(), UNIT)) == "Write failed" ? 0 : 1; }),
              0);
    append(track, 10, 12);
    clip_close(clip);
    expectUnits(name, 12);
}

TEST(Fork, AChildIsToldThatItDoesNotCloseTheParentsClip) {
    ScratchPath folder;
    auto const name = folder.name("clip");
    unsigned int const clip = createClip(name, {VideoStandard::s1080i_50, 0, 0, 1, 2, false});
    append(clip_get_track(clip, 0), 0, 2);
    EXPECT_EQ(exitCodeOfChild([&] { return said(clip_close_checked(clip)) == "Write failed" ? 0 : 1; }), 0);
    append(clip_get_track(clip, 0), 2, 3);
    EXPECT_OK(clip_close_checked(clip));
    expectUnits(name, 3);
}

TEST(Fork, AChildRecordsClipsOfItsOwn) {
    ScratchPath folder;
    auto const name = folder.name("clip"), own = folder.name("own");
    unsigned int const clip = createClip(name, {VideoStandard::s1080i_50, 0, 0, 1, 2, false});
    append(clip_get_track(clip, 0), 0, 2);
    EXPECT_EQ(exitCodeOfChild([&] {
                  unsigned int const mine = createClip(own, {VideoStandard::s1080i_50, 0, 0, 1, 2, false});
                  append(clip_get_track(mine, 0), 0, 5);
                  return testing::Test::HasFailure() ? 1 : 0;  // written back by exit()
              }),
              0);
    clip_close(clip);
    expectUnits(name, 2);
    expectUnits(own, 5);
}

TEST(Fork, AnAudioRecordingGoesOnAfterAChildHasExited) {
    ScratchPath folder;
    auto const name = folder.name("clip");
    unsigned int const clip = createClip(name, {VideoStandard::s1080i_50, 0, 0, 1, 2, false});
    unsigned int const track = clip_get_track(clip, 0);
    unsigned int writer = 0;
    ASSERT_OK(seqwrite_begin(track, &writer));
    std::vector<std::int32_t> const samples(SAMPLES + SAMPLES / 2, 7);
    std::int32_t const* const buffers[] = {samples.data(), samples.data()};
    ASSERT_OK(seqwrite_write(writer, buffers, SAMPLES + SAMPLES / 2));
    EXPECT_EQ(exitCodeOfChild([] { return 0; }), 0);
    EXPECT_EQ(track_length_in_units(track), 1u) << "the half unit is still the writer's";
    ASSERT_OK(seqwrite_write(writer, buffers, SAMPLES / 2));
    EXPECT_OK(seqwrite_finish(writer));
    EXPECT_EQ(track_length_in_units(track), 2u);
    clip_close(clip);
}

}  // namespace
}  // namespace KelvonClip
