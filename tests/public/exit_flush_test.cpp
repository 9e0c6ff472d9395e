// Processes that end with clips still open: everything they have recorded is in the files.

#include <cstdint>
#include <cstdlib>
#include <string>
#include <thread>

#include <vector>

#include <kelvonclip/seq_read.h>
#include <kelvonclip/seq_write.h>

#include "public/public_support.h"
#include "support/child.h"
#include "support/clip_image.h"
#include "support/latch.h"
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
    static auto& reading = *new Latch(1);  // the thread outlives every static object
    std::thread([track = clip_get_track(clip, 0)] {
        // Until the process ends; from some point on the handle is unknown.
        for (unsigned int unit = 0;; ++unit) {
            static char back[UNIT];
            track_read(track, unit % UNITS, back);
            if (unit == 10) reading.count_down();
        }
    }).detach();
    reading.wait();
    std::exit(exitCode());
}

// Streams on the second and the third track.
TEST(ExitChild, DISABLED_ExitsWhileThreadsUseStreams) {
    unsigned int const clip = record(childArgument());
    static auto& working = *new Latch(2);  // the threads outlive every static object
    unsigned int writer = 0, reader = 0;
    ASSERT_OK(seqwrite_begin(clip_get_track(clip, 1), &writer));
    ASSERT_OK(seqread_begin(clip_get_track(clip, 2), &reader));
    std::thread([writer] {
        static auto const& samples = *new std::vector<std::int32_t>(5000, 7);
        std::int32_t const* const buffers[] = {samples.data(), samples.data()};
        for (unsigned int call = 0;; ++call) {
            seqwrite_write(writer, buffers, 5000);
            if (call == 10) working.count_down();
        }
    }).detach();
    std::thread([reader] {
        static auto& samples = *new std::vector<std::int32_t>(5000);
        std::int32_t* const buffers[] = {samples.data(), samples.data()};
        for (unsigned int call = 0;; ++call) {
            seqread_read(reader, buffers, 5000);
            if (call == 10) working.count_down();
        }
    }).detach();
    working.wait();
    std::exit(exitCode());
}

TEST(ExitChild, DISABLED_ExitsWithACreationPending) {
    record(childArgument());
    unsigned int creation = 0;
    EXPECT_OK(create_begin(L"never finished", VideoStandard::s1080i_50, &creation));
    std::exit(exitCode());
}

// The first calls use streams that do not exist. Then a clip is created, with a recording that is not finished.
TEST(ExitChild, DISABLED_AsksForStreamsBeforeAnyClipAndLeavesARecordingOpen) {
    EXPECT_EQ(seqread_subchannel_count(0), 0u);
    EXPECT_EQ(seqwrite_subchannel_count(0), 0u);
    unsigned int const clip = createClip(childArgument(), {VideoStandard::s1080i_50, 0, 0, 1, 2, false});
    unsigned int reader = 0, writer = 0;
    EXPECT_OK(seqwrite_begin(clip_get_track(clip, 0), &writer));
    EXPECT_OK(seqread_begin(clip_get_track(clip, 0), &reader));
    std::vector<std::int32_t> const samples(960 + 1, 7);
    std::int32_t const* const buffers[] = {samples.data(), samples.data()};
    EXPECT_OK(seqwrite_write(writer, buffers, 960 + 1));
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
TEST(ExitFlush, ThreadsThatStillUseStreamsLoseNothing) {
    for (int run = 0; run < 3; ++run) {
        ScratchPath folder;
        auto const name = folder.name("clip");
        ASSERT_EQ(runChild("ExitChild.DISABLED_ExitsWhileThreadsUseStreams", name), CHILD_PASSED);
        unsigned int clip = 0;
        ASSERT_OK(clip_open(name.c_str(), &clip));
        EXPECT_EQ(track_length_in_units(clip_get_track(clip, 0)), UNITS);
        // What the calls that have returned took in.
        EXPECT_GE(track_length_in_units(clip_get_track(clip, 1)), UNITS + 10 * 5000 / 960);
        clip_close(clip);
    }
}
TEST(ExitFlush, PendingCreationIsInNobodysWay) { leaveAndLook("ExitsWithACreationPending"); }

TEST(ExitFlush, RecordingIsFinishedBeforeItsClipIsClosed) {
    ScratchPath folder;
    auto const name = folder.name("clip");
    ASSERT_EQ(runChild("ExitChild.DISABLED_AsksForStreamsBeforeAnyClipAndLeavesARecordingOpen", name), CHILD_PASSED);
    unsigned int clip = 0;
    ASSERT_OK(clip_open(name.c_str(), &clip));
    EXPECT_EQ(track_length_in_units(clip_get_track(clip, 0)), 2u) << "a whole unit and the one with the last sample";
    clip_close(clip);
}

}  // namespace
}  // namespace KelvonClip
