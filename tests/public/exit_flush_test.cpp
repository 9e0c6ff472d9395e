// Processes that end with clips still open: whatever they recorded is in the files.

#include <atomic>
#include <cstdlib>
#include <thread>

#include "public/public_support.h"
#include "support/child.h"
#include "support/clip_image.h"
#include "support/scratch_path.h"

namespace KelvonClip {
namespace {

using namespace test;

constexpr unsigned int UNIT = 8192;  // two subchannels at 50Hz
constexpr unsigned int UNITS = 25, TRACKS = 3;

// Creates a clip and records; the clip stays open.
unsigned int record(std::wstring const& name) {
    unsigned int const clip = createClip(name, {VideoStandard::s1080i_50, 0, 0, TRACKS, 2, false});
    for (unsigned int unit = 0; unit < UNITS; ++unit)
        for (unsigned int index = 0; index < TRACKS; ++index)
            EXPECT_OK(
                track_write(clip_get_track(clip, index), unit, patternBytes(UNIT, unit * 8 + index).data(), UNIT));
    return clip;
}

void expectRecorded(std::wstring const& name) {
    unsigned int clip = 0;
    ASSERT_OK(clip_open(name.c_str(), &clip));
    ASSERT_EQ(clip_track_count(clip), TRACKS);
    for (unsigned int index = 0; index < TRACKS; ++index) {
        unsigned int const track = clip_get_track(clip, index);
        ASSERT_EQ(track_length_in_units(track), UNITS) << index;
        std::string back(UNIT, '\0');
        for (unsigned int unit = 0; unit < UNITS; ++unit) {
            ASSERT_OK(track_read(track, unit, back.data()));
            ASSERT_EQ(back, patternBytes(UNIT, unit * 8 + index)) << index << ' ' << unit;
        }
    }
    clip_close(clip);
}

int exitCode() { return testing::Test::HasFailure() ? CHILD_FAILED : CHILD_PASSED; }

// Run as second processes by the tests below.
TEST(ExitChild, DISABLED_RecordsAndCallsExit) {
    record(childArgument());
    std::exit(exitCode());
}

TEST(ExitChild, DISABLED_RecordsAndReturnsFromMain) { record(childArgument()); }

TEST(ExitChild, DISABLED_RecordsOnAThreadThatHasEnded) {
    std::thread([] { record(childArgument()); }).join();
    std::exit(exitCode());
}

TEST(ExitChild, DISABLED_ExitsWhileAThreadReads) {
    unsigned int const clip = record(childArgument());
    static std::atomic<int> rounds{0};
    std::thread([track = clip_get_track(clip, 0)] {
        // Until the process ends; from some point on the handle is unknown.
        for (unsigned int unit = 0;; ++unit, ++rounds) {
            static char back[UNIT];
            track_read(track, unit % UNITS, back);
        }
    }).detach();
    while (rounds < 10)
        std::this_thread::yield();
    std::exit(exitCode());
}

TEST(ExitChild, DISABLED_ExitsWithACreationPending) {
    record(childArgument());
    unsigned int creation = 0;
    EXPECT_OK(create_begin(L"never finished", VideoStandard::s1080i_50, &creation));
    std::exit(exitCode());
}

void leaveAndLook(char const* child) {
    ScratchPath folder;
    auto const name = folder.name("clip");
    ASSERT_EQ(runChild(std::string("ExitChild.DISABLED_") + child, name), CHILD_PASSED);
    expectRecorded(name);
}

TEST(ExitFlush, ProcessThatCallsExitLosesNothing) { leaveAndLook("RecordsAndCallsExit"); }
TEST(ExitFlush, ProcessThatReturnsFromMainLosesNothing) { leaveAndLook("RecordsAndReturnsFromMain"); }
TEST(ExitFlush, WhatAnEndedThreadRecordedIsThere) { leaveAndLook("RecordsOnAThreadThatHasEnded"); }
TEST(ExitFlush, ThreadThatIsStillReadingLosesNothing) { leaveAndLook("ExitsWhileAThreadReads"); }
TEST(ExitFlush, PendingCreationIsInNobodysWay) { leaveAndLook("ExitsWithACreationPending"); }

}  // namespace
}  // namespace KelvonClip
