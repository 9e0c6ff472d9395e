// Recordings whose process is killed: what a checkpoint brought to the disk is there, in its place, and nothing else.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <string>
#include <thread>
#include <utility>

#include <sys/wait.h>
#include <unistd.h>

#include "public/public_support.h"
#include "support/clip_image.h"
#include "support/scratch_path.h"

namespace KelvonClip {
namespace {

using namespace test;

constexpr unsigned int TRACKS = 4;  // video, two of audio, timecode
constexpr int KILLS = 25;

std::string unitBytes(unsigned int size, unsigned int track, unsigned int unit) {
    return patternBytes(size, unit * TRACKS + track);
}

unsigned int createRecording(std::wstring const& name) {
    return createClip(name, {VideoStandard::s1080i_50, 1, 0, 2, 2, true});
}

// Records for ever. After each unit it writes to the pipe how many units a kill must leave in every track: those before
// the last checkpoint. With an interval checkpoints are automatic: one that is due is made when the next unit is
// written.
[[noreturn]] void record(std::wstring const& name, int promises, unsigned int interval_ms) {
    unsigned int const clip = createRecording(name);
    if (clip == 0) std::_Exit(1);
    if (clip_checkpoint_every(clip, interval_ms, false) != nullptr) std::_Exit(1);
    using Clock = std::chrono::steady_clock;
    unsigned int promised = 0, units_at_mark = 0;
    auto mark = Clock::now();
    for (unsigned int unit = 0;; ++unit) {
        bool const due = Clock::now() - mark >= std::chrono::milliseconds(interval_ms);
        for (unsigned int index = 0; index < TRACKS; ++index) {
            unsigned int const track = clip_get_track(clip, index), size = track_unit_size(track);
            if (track_write(track, unit, unitBytes(size, index, unit).data(), size) != nullptr) std::_Exit(1);
        }
        if (interval_ms == 0 && unit % 5 == 4) {
            if (clip_checkpoint(clip) != nullptr) std::_Exit(1);
            promised = unit + 1;
        }
        if (interval_ms != 0 && due) {
            promised = std::exchange(units_at_mark, unit + 1);
            mark = Clock::now();
        }
        if (::write(promises, &promised, sizeof promised) != sizeof promised) std::_Exit(1);
    }
}

struct Killed {
    unsigned int promised;
    bool was_recording;
};

// Kills a recording about `milliseconds` after it has promised `at_least` units. Gives the last promise before that.
Killed recordAndKill(std::wstring const& name, unsigned int interval_ms, unsigned int at_least,
                     std::chrono::milliseconds milliseconds) {
    int ends[2];
    EXPECT_EQ(::pipe(ends), 0);
    pid_t const child = ::fork();
    if (child == 0) record(name, ends[1], interval_ms);
    ::close(ends[1]);
    unsigned int promised = 0, units = 0;
    do  // the first number shows that the recording is under way
        if (::read(ends[0], &promised, sizeof promised) != sizeof promised) break;
    while (promised < at_least);
    std::this_thread::sleep_for(milliseconds);
    ::kill(child, SIGKILL);
    int status = 0;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    while (::read(ends[0], &units, sizeof units) == sizeof units)
        promised = units;
    ::close(ends[0]);
    return {promised, WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL};
}

// Every unit that a track shows is right; gives the length of the shortest track.
unsigned int expectWhole(std::wstring const& name) {
    unsigned int clip = 0, shortest = ~0U;
    EXPECT_OK(clip_open(name.c_str(), &clip));
    EXPECT_EQ(clip_track_count(clip), TRACKS);
    for (unsigned int index = 0; index < TRACKS; ++index) {
        unsigned int const track = clip_get_track(clip, index), units = track_length_in_units(track);
        shortest = std::min(shortest, units);
        std::string back(track_unit_size(track), '\0');
        for (unsigned int unit = 0; unit < units; ++unit) {
            EXPECT_OK(track_read(track, unit, back.data()));
            EXPECT_TRUE(back == unitBytes(track_unit_size(track), index, unit))
                << "track " << index << ", unit " << unit;
        }
    }
    clip_close(clip);
    return shortest;
}

TEST(Kill, WhatWasCheckpointedBeforeAKillIsThereAfterwards) {
    std::mt19937 dice(25);
    for (int n = 0; n < KILLS; ++n) {
        ScratchPath folder;
        auto const name = folder.name("clip");
        auto const killed = recordAndKill(name, 0, 5, std::chrono::milliseconds(dice() % 60));
        ASSERT_TRUE(killed.was_recording);
        EXPECT_GE(expectWhole(name), killed.promised) << "kill " << n;
    }
}

TEST(Kill, WhatAnAutomaticCheckpointMustHaveWrittenIsThereAfterwards) {
    std::mt19937 dice(26);
    for (int n = 0; n < 5; ++n) {
        ScratchPath folder;
        auto const name = folder.name("clip");
        auto const killed = recordAndKill(name, 10, 1, std::chrono::milliseconds(dice() % 60));
        ASSERT_TRUE(killed.was_recording);
        EXPECT_GE(killed.promised, 1U);
        EXPECT_GE(expectWhole(name), killed.promised) << "kill " << n;
    }
}

TEST(Kill, WithoutAnyCheckpointNothingWrongShows) {
    ScratchPath folder;
    auto const name = folder.name("clip");
    auto const killed = recordAndKill(name, 1000000, 0, std::chrono::milliseconds(50));
    ASSERT_TRUE(killed.was_recording);
    EXPECT_EQ(expectWhole(name), 0U);
}

}  // namespace
}  // namespace KelvonClip
