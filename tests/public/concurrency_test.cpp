// Eight threads call exported functions at the same time. Under the thread sanitizer this finds races; in all rounds it
// checks that no thread gets another one's data.

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "public/public_support.h"
#include "support/clip_image.h"
#include "support/scratch_path.h"

namespace KelvonClip {
namespace {

using namespace test;

constexpr unsigned int THREADS = 8;
constexpr unsigned int UNIT = 8192;  // two subchannels at 50Hz

void inThreads(std::function<void(unsigned int)> const& work) {
    std::vector<std::thread> threads;
    for (unsigned int i = 0; i < THREADS; ++i)
        threads.emplace_back([&work, i] { work(i); });
    for (auto& thread : threads)
        thread.join();
}

TEST(Concurrency, ThreadsRecordTracksOfOneClip) {
    ScratchPath folder;
    unsigned int clip = createClip(folder.name("clip"), {VideoStandard::s1080i_50, 0, 0, THREADS, 2, false});
    inThreads([&](unsigned int i) {
        unsigned int const track = clip_get_track(clip, i);
        std::string back(UNIT, '\0');
        for (unsigned int unit = 0; unit < 40; ++unit) {
            ASSERT_OK(track_write(track, unit, patternBytes(UNIT, unit * 8 + i).data(), UNIT));
            ASSERT_OK(track_read(track, unit / 2, back.data()));
            ASSERT_EQ(back, patternBytes(UNIT, unit / 2 * 8 + i));
            clip_get_length(clip);
        }
    });
    clip_close(clip);
    ASSERT_OK(clip_open(folder.name("clip").c_str(), &clip));
    inThreads([&](unsigned int i) {
        unsigned int const track = clip_get_track(clip, i);
        ASSERT_EQ(track_length_in_units(track), 40u);
        AlignedUnit back(UNIT);
        for (unsigned int unit = 0; unit < 40; ++unit) {
            ASSERT_OK(track_read(track, unit, back.data()));
            ASSERT_EQ(back.text(), patternBytes(UNIT, unit * 8 + i));
        }
    });
    clip_close(clip);
}

TEST(Concurrency, ThreadsRewriteAndReadUnitsOfOneTrack) {
    ScratchPath folder;
    unsigned int const clip = createClip(folder.name("clip"), {VideoStandard::s1080i_50, 0, 0, 1, 2, false});
    unsigned int const track = clip_get_track(clip, 0);
    for (unsigned int unit = 0; unit < THREADS * 4; ++unit)
        ASSERT_OK(track_write(track, unit, patternBytes(UNIT, unit).data(), UNIT));
    inThreads([&](unsigned int i) {
        std::string back(UNIT, '\0');
        for (unsigned int round = 1; round <= 20; ++round)
            for (unsigned int unit = i; unit < THREADS * 4; unit += THREADS) {
                ASSERT_OK(track_write(track, unit, patternBytes(UNIT, unit + round * 100).data(), UNIT));
                ASSERT_OK(track_read(track, unit, back.data()));
                ASSERT_EQ(back, patternBytes(UNIT, unit + round * 100));
            }
    });
    EXPECT_EQ(track_length_in_units(track), THREADS * 4);
    clip_close(clip);
}

TEST(Concurrency, ThreadsOpenQueryAndCloseTheSameClip) {
    ScratchPath folder;
    auto const name = folder.name("clip");
    unsigned int clip = createClip(name, {VideoStandard::s1080i_50, 0, 0, 2, 2, false});
    ASSERT_OK(track_write(clip_get_track(clip, 1), 0, patternBytes(UNIT, 1).data(), UNIT));
    clip_close(clip);
    inThreads([&](unsigned int) {
        std::string back(UNIT, '\0');
        for (int n = 0; n < 40; ++n) {
            unsigned int handle = 0;
            ASSERT_OK(clip_open(name.c_str(), &handle));
            ASSERT_EQ(clip_track_count(handle), 2u);
            ASSERT_OK(track_read(clip_get_track(handle, 1), 0, back.data()));
            ASSERT_EQ(back, patternBytes(UNIT, 1));
            clip_close(handle);
        }
    });
    EXPECT_EQ(clip_track_count(clip), 0u);
}

TEST(Concurrency, QueriesRunAgainstAThreadThatClosesAndReopens) {
    ScratchPath folder;
    auto const name = folder.name("clip");
    unsigned int const first = createClip(name, {VideoStandard::s1080i_50, 0, 0, 1, 2, false});
    ASSERT_OK(track_write(clip_get_track(first, 0), 0, patternBytes(UNIT, 1).data(), UNIT));
    std::atomic<unsigned int> current{first};
    std::atomic<bool> stop{false};
    inThreads([&](unsigned int i) {
        if (i == 0) {
            for (unsigned int n = 1; n <= 60; ++n) {
                clip_close(current);
                unsigned int handle = 0;
                ASSERT_OK(clip_open_rw(name.c_str(), &handle));
                ASSERT_EQ(track_length_in_units(clip_get_track(handle, 0)), n) << "nothing recorded is lost";
                ASSERT_OK(track_write(clip_get_track(handle, 0), n, patternBytes(UNIT, n + 1).data(), UNIT));
                current = handle;
            }
            stop = true;
            return;
        }
        std::string back(UNIT, '\0');
        while (!stop) {
            unsigned int const handle = current;
            unsigned int const track = clip_get_track(handle, 0);
            // The clip may be closed before any of these calls; then they return what unknown handles get.
            std::string const message = said(track_read(track, 0, back.data()));
            if (message.empty())
                ASSERT_EQ(back, patternBytes(UNIT, 1));
            else
                ASSERT_EQ(message, "Bad Handle");
            clip_get_length(handle);
            track_length_in_fields(track);
        }
    });
    clip_close(current);
}

TEST(Concurrency, OpeningInEitherModeWhileOthersLetGoWorksOrSaysWhyNot) {
    ScratchPath folder;
    auto const name = folder.name("clip");
    clip_close(createClip(name, {VideoStandard::s1080i_50, 0, 0, 1, 2, false}));
    inThreads([&](unsigned int i) {
        for (int n = 0; n < 40; ++n) {
            unsigned int handle = 0;
            auto* const open = i % 2 == 0 ? clip_open : clip_open_rw;
            std::string const message = said(open(name.c_str(), &handle));
            // The former entry's file is open as long as somebody's query still holds it.
            if (!message.empty()) {
                ASSERT_EQ(message, "Already open with different read-only mode");
                continue;
            }
            ASSERT_EQ(clip_track_count(handle), 1u);
            ASSERT_EQ(track_length_in_units(clip_get_track(handle, 0)), 0u);
            clip_close(handle);
        }
    });
    unsigned int handle = 0;
    EXPECT_OK(clip_open_rw(name.c_str(), &handle));
    clip_close(handle);
}

TEST(Concurrency, ThreadsCreateClipsOfTheirOwn) {
    ScratchPath folder;
    inThreads([&](unsigned int i) {
        for (int n = 0; n < 5; ++n) {
            auto const name = folder.name(("clip" + std::to_string(i)).c_str());
            unsigned int const clip = createClip(name, {VideoStandard::s1080i_50, 1, 0, 1, 2, true});
            ASSERT_EQ(clip_track_count(clip), 3u);
            ASSERT_OK(track_write(clip_get_track(clip, 1), 0, patternBytes(UNIT, i).data(), UNIT));
            clip_close(clip);
        }
    });
}

TEST(Concurrency, OnlyOneOfManyThreadsBeginsAndFinishesAName) {
    ScratchPath folder;
    auto const name = folder.name("clip");
    for (int n = 0; n < 10; ++n) {
        std::atomic<unsigned int> begun{0}, finished{0}, creation{0}, clip{0};
        inThreads([&](unsigned int) {
            unsigned int handle = 0;
            std::string const message = said(create_begin(name.c_str(), VideoStandard::s1080i_50, &handle));
            if (message.empty()) {
                ++begun;
                creation = handle;
            } else {
                ASSERT_EQ(message, "Already creating clip with same name");
            }
        });
        ASSERT_EQ(begun, 1u);
        inThreads([&](unsigned int) {
            unsigned int handle = 0;
            std::string const message = said(create_finish(creation, &handle));
            if (message.empty()) {
                ++finished;
                clip = handle;
            } else {
                ASSERT_EQ(message, "Bad Handle");
            }
        });
        ASSERT_EQ(finished, 1u);
        clip_close(clip);
    }
}

TEST(Concurrency, OfThreadsThatFinishAndCancelACreationOneSucceeds) {
    ScratchPath folder;
    auto const name = folder.name("clip");
    for (int n = 0; n < 10; ++n) {
        unsigned int creation = 0;
        ASSERT_OK(create_begin(name.c_str(), VideoStandard::s1080i_50, &creation));
        std::atomic<unsigned int> ended{0}, clip{0};
        inThreads([&](unsigned int thread) {
            unsigned int made = 0;
            std::string const message =
                said(thread % 2 == 0 ? create_finish(creation, &made) : create_cancel(creation));
            if (message.empty())
                ++ended;
            else
                ASSERT_EQ(message, "Bad Handle");
            if (made != 0) clip = made;
        });
        ASSERT_EQ(ended, 1u);
        clip_close(clip);
    }
}

}  // namespace
}  // namespace KelvonClip
