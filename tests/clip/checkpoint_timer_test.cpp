#include "clip/checkpoint_timer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <optional>
#include <thread>
#include <vector>

namespace KelvonClip {
namespace {

using namespace std::chrono_literals;

constexpr CheckpointTimer::Clock::time_point START{1000s};

TEST(CheckpointTimer, TheFirstUnitBeginsTheTimeAndTwoSecondsLaterACheckpointIsDue) {
    CheckpointTimer timer;
    EXPECT_EQ(timer.due(START), std::nullopt);
    EXPECT_EQ(timer.due(START + 1999ms), std::nullopt);
    EXPECT_EQ(timer.due(START + 2000ms), Durability::process_end);
    EXPECT_EQ(timer.due(START + 2001ms), std::nullopt) << "the time began anew";
    EXPECT_EQ(timer.due(START + 3999ms), std::nullopt);
    EXPECT_EQ(timer.due(START + 4000ms), Durability::process_end);
    EXPECT_EQ(timer.due(START + 60s), Durability::process_end) << "late, and once";
    EXPECT_EQ(timer.due(START + 61s), std::nullopt);
}

TEST(CheckpointTimer, IntervalAndDurabilityAreTheOnesThatWereSet) {
    CheckpointTimer timer;
    timer.setInterval(10, Durability::power_loss);
    EXPECT_EQ(timer.due(START), std::nullopt);
    EXPECT_EQ(timer.due(START + 9ms), std::nullopt);
    EXPECT_EQ(timer.due(START + 10ms), Durability::power_loss);
    timer.setInterval(20, Durability::process_end);
    EXPECT_EQ(timer.due(START + 20ms), std::nullopt) << "begins anew";
    EXPECT_EQ(timer.due(START + 40ms), Durability::process_end);
}

TEST(CheckpointTimer, AnIntervalOfZeroTurnsItOff) {
    CheckpointTimer timer;
    timer.setInterval(0, Durability::power_loss);
    EXPECT_EQ(timer.due(START), std::nullopt);
    EXPECT_EQ(timer.due(START + 24h), std::nullopt);
}

TEST(CheckpointTimer, ACheckpointThatSomebodyAskedForBeginsTheTimeAnew) {
    CheckpointTimer timer;
    EXPECT_EQ(timer.due(START), std::nullopt);
    timer.restart();
    EXPECT_EQ(timer.due(START + 2500ms), std::nullopt);
    EXPECT_EQ(timer.due(START + 4500ms), Durability::process_end);
}

TEST(CheckpointTimer, OfManyThreadsOneIsTold) {
    CheckpointTimer timer;
    EXPECT_EQ(timer.due(START), std::nullopt);
    std::atomic<int> told{0};
    std::vector<std::thread> threads;
    for (int n = 0; n < 8; ++n)
        threads.emplace_back([&] {
            if (timer.due(START + 2s)) ++told;
        });
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(told, 1);
}

}  // namespace
}  // namespace KelvonClip
