#include "audio/unit_read_ahead.h"

#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <thread>
#include <utility>

#include "audio/memory_units.h"
#include "platform/task_pool.h"
#include "support/latch.h"
#include "support/when_waiting.h"

namespace KelvonClip::hemlock {
namespace {

constexpr AudioTrackShape SHAPE{VideoFrequency::f60, 2, 0};

// A track whose units begin with their own number.
std::shared_ptr<model::MemoryUnits> numberedUnits(std::uint32_t count) {
    auto track = std::make_shared<model::MemoryUnits>(SHAPE);
    for (std::uint32_t unit = 0; unit < count; ++unit) {
        track->units.emplace_back(SHAPE.unitSize());
        model::put32(track->units.back().data(), unit + 1);
    }
    return track;
}

struct Taken {
    KString error;
    std::uint64_t index = 0;
    std::int32_t first_word = 0;
};
Taken take(UnitReadAhead& ahead) {
    UnitReadAhead::Unit unit{};
    Taken taken;
    taken.error = ahead.next(unit);
    if (taken.error.empty()) taken.index = unit.index, taken.first_word = *unit.words;
    return taken;
}

TEST(UnitReadAhead, HandsOverEveryUnitInOrderAndThenNothingness) {
    auto const track = numberedUnits(100);
    UnitReadAhead ahead(track, SHAPE.unitSize());
    for (std::uint32_t unit = 0; unit < 130; ++unit) {
        auto const taken = take(ahead);
        ASSERT_TRUE(taken.error.empty());
        EXPECT_EQ(taken.index, unit);
        EXPECT_EQ(taken.first_word, unit < 100 ? static_cast<std::int32_t>(unit + 1) : 0);
    }
}

TEST(UnitReadAhead, ReadsABoundedNumberOfUnitsAheadAndNoneBeforeTheFirstIsAskedFor) {
    auto const track = numberedUnits(1000);
    constexpr std::uint64_t BOUND = UnitReadAhead::UNITS_PER_RUN * UnitReadAhead::RUNS_AHEAD;
    {
        UnitReadAhead ahead(track, SHAPE.unitSize());
        EXPECT_EQ(track->reads, 0u);
        for (int unit = 0; unit < 100; ++unit)
            take(ahead);
    }
    EXPECT_GE(track->reads, 100u);
    EXPECT_LE(track->reads, 100 + BOUND);
}

TEST(UnitReadAhead, SeesWhatARecordingAddedBeforeTheUnitWasAskedFor) {
    auto const track = numberedUnits(3);
    UnitReadAhead ahead(track, SHAPE.unitSize());
    for (int unit = 0; unit < 3; ++unit)
        take(ahead);
    for (std::int32_t unit = 3; unit < 40; ++unit) {
        auto grown = numberedUnits(static_cast<std::uint32_t>(unit) + 1)->units.back();
        track->units.push_back(std::move(grown));
        EXPECT_EQ(take(ahead).first_word, unit + 1);
    }
}

TEST(UnitReadAhead, AFailingUnitIsReportedInItsPlaceAndTriedAgain) {
    for (std::uint32_t bad = 0; bad < 20; ++bad) {
        auto const track = numberedUnits(40);
        track->read_faults = {{bad, 2}, {bad + 3, 1}};
        UnitReadAhead ahead(track, SHAPE.unitSize());
        int failures = 0;
        for (std::int32_t unit = 0; unit < 40;) {
            auto const taken = take(ahead);
            if (taken.error.empty()) {
                ASSERT_EQ(taken.first_word, ++unit);
            } else {
                EXPECT_EQ(taken.error, KString("read fault"));
                EXPECT_TRUE(unit == static_cast<std::int32_t>(bad) || unit == static_cast<std::int32_t>(bad + 3));
                ++failures;
            }
        }
        // The second unit may have used up its fault in the run that failed before it.
        EXPECT_GE(failures, 2);
        EXPECT_LE(failures, 3);
    }
}

TEST(UnitReadAhead, KeepsAUnitWhereItIsWhileItsBlocksAreWanted) {
    auto const track = numberedUnits(400);
    UnitReadAhead ahead(track, SHAPE.unitSize());
    std::vector<UnitReadAhead::Unit> kept;
    for (int unit = 0; unit < 400; ++unit) {
        kept.emplace_back();
        ASSERT_TRUE(ahead.next(kept.back()).empty());
        ++*kept.back().open_blocks;
        if (kept.size() < 60) continue;
        for (auto const& each : kept) {
            EXPECT_EQ(*each.words, static_cast<std::int32_t>(each.index + 1));
            --*each.open_blocks;
        }
        kept.clear();
    }
}

// The reader ends while the task is held up in a run that nobody has asked for; the task goes on when the reader waits.
TEST(UnitReadAhead, EndingWaitsForWhatIsUnderWay) {
    constexpr std::uint32_t RUN = UnitReadAhead::UNITS_PER_RUN;
    auto const main_thread = std::this_thread::get_id();
    for (std::uint32_t taken : {1u, RUN - 1, RUN, RUN + 1, 2 * RUN + 1}) {
        auto const track = numberedUnits(100);
        std::uint32_t const not_asked_for = (taken + RUN - 1) / RUN * RUN;
        test::Latch task_held(1), go_on(1);
        std::atomic<int> begun = 0, ended = 0;
        bool ending = false;
        track->before_read = [&](std::uint32_t unit) {
            if (std::this_thread::get_id() == main_thread) {
                task_held.wait();  // leaves the task something to read
                EXPECT_FALSE(ending) << "what has not begun is left out";
                return;
            }
            if (unit < not_asked_for) return;
            if (++begun == 1) task_held.count_down();
            go_on.wait();
            ++ended;
        };
        auto ahead = std::make_unique<UnitReadAhead>(track, SHAPE.unitSize());
        for (std::uint32_t unit = 0; unit < taken; ++unit)
            take(*ahead);
        task_held.wait();
        test::WhenWaiting const waiting([&] { go_on.count_down(); });
        ending = true;
        ahead.reset();
        EXPECT_EQ(ended, 1) << taken;
        EXPECT_EQ(begun, 1) << taken;
    }
}

// The task is held up in its first run until as many others have been read as there are besides it.
TEST(UnitReadAhead, WhatTheTaskHasNotBegunIsReadByTheOneWhoWaits) {
    auto const track = numberedUnits(400);
    test::Latch gate(1);
    std::size_t read_here = 0;
    auto const main_thread = std::this_thread::get_id();
    track->before_read = [&](std::uint32_t) {
        if (std::this_thread::get_id() != main_thread)
            gate.wait();
        else if (++read_here == UnitReadAhead::RUNS_AHEAD - 1)
            gate.count_down();
    };
    UnitReadAhead ahead(track, SHAPE.unitSize());
    for (std::int32_t unit = 0; unit < 400; ++unit)
        ASSERT_EQ(take(ahead).first_word, unit + 1);
    EXPECT_GE(read_here, UnitReadAhead::RUNS_AHEAD - 1);
}

// However many runs there are to read, the pool has one task of a reader's at most. The task is held up until the
// reader has handed over all the runs that it may.
TEST(UnitReadAhead, GivesThePoolOneTask) {
    ASSERT_TRUE(UnitReadAhead::waitForTasks(60000)) << "those of other cases";
    auto const track = numberedUnits(2000);
    std::atomic<bool> opened = false;
    test::Latch go_on(1);
    auto const look = [&] {
        EXPECT_LE(UnitReadAhead::tasksInPool(), 1u);
        if (!opened.exchange(true)) go_on.count_down();
    };
    auto const main_thread = std::this_thread::get_id();
    track->before_read = [&](std::uint32_t) { std::this_thread::get_id() == main_thread ? look() : go_on.wait(); };
    UnitReadAhead ahead(track, SHAPE.unitSize());
    test::WhenWaiting const waiting(look);
    for (std::int32_t unit = 0; unit < 2000; ++unit) {
        ASSERT_EQ(take(ahead).first_word, unit + 1);
        ASSERT_LE(UnitReadAhead::tasksInPool(), 1u);
    }
}

// The pool is full of tasks that do not end; the reader goes on all the same.
TEST(UnitReadAhead, APoolThatIsBusyElsewhereCostsNoProgress) {
    constexpr int STUCK = 64;
    test::Latch gate(1), all_ended(STUCK);
    for (int task = 0; task < STUCK; ++task) {
        platform::runInBackground([&] {
            gate.wait();
            all_ended.count_down();
        });
    }
    {
        auto const track = numberedUnits(200);
        UnitReadAhead ahead(track, SHAPE.unitSize());
        for (std::int32_t unit = 0; unit < 200; ++unit)
            EXPECT_EQ(take(ahead).first_word, unit + 1);
    }
    gate.count_down();
    all_ended.wait();
    EXPECT_TRUE(UnitReadAhead::waitForTasks(60000));
}

TEST(UnitReadAhead, AReaderWhoseReadsThrowGetsTheFaultAsAMessage) {
    auto const track = numberedUnits(10);
    std::atomic<bool> broken = true;
    track->before_read = [&](std::uint32_t) {
        if (broken) throw std::runtime_error("no such luck");
    };
    UnitReadAhead ahead(track, SHAPE.unitSize());
    EXPECT_EQ(take(ahead).error, KString("no such luck"));
    EXPECT_EQ(take(ahead).error, KString("no such luck"));
    broken = false;
    for (std::int32_t unit = 0; unit < 10; ++unit)
        EXPECT_EQ(take(ahead).first_word, unit + 1);
}

}  // namespace
}  // namespace KelvonClip::hemlock
