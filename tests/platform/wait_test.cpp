#include "platform/wait.h"

#include <memory>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/when_waiting.h"

namespace KelvonClip::platform {
namespace {

TEST(HostSemaphore, BeginsWithItsInitialCount) {
    HostSemaphore semaphore(2, 3);
    EXPECT_EQ(semaphore.waitAlertable(0), WaitResult::taken);
    EXPECT_EQ(semaphore.waitAlertable(0), WaitResult::taken);
    EXPECT_EQ(semaphore.waitAlertable(0), WaitResult::timed_out);
}

TEST(HostSemaphore, ReleasesAllUnitsOrNone) {
    HostSemaphore semaphore(1, 3);
    EXPECT_FALSE(semaphore.post(3));
    EXPECT_FALSE(semaphore.post(0xFFFFFFFF));
    EXPECT_EQ(semaphore.waitAlertable(0), WaitResult::taken);
    EXPECT_EQ(semaphore.waitAlertable(0), WaitResult::timed_out) << "the refused post released nothing";
    EXPECT_TRUE(semaphore.post(3));
    for (int unit = 0; unit < 3; ++unit)
        EXPECT_EQ(semaphore.waitAlertable(0), WaitResult::taken);
    EXPECT_EQ(semaphore.waitAlertable(0), WaitResult::timed_out);
}

TEST(HostSemaphore, OnePostReleasesSeveralWaiters) {
    HostSemaphore semaphore(0, 4);
    std::vector<std::thread> waiters;
    for (int waiter = 0; waiter < 4; ++waiter) {
        waiters.emplace_back([&] { EXPECT_EQ(semaphore.waitAlertable(WAIT_FOREVER), WaitResult::taken); });
    }
    EXPECT_TRUE(semaphore.post(4));
    for (auto& waiter : waiters)
        waiter.join();
    EXPECT_EQ(semaphore.waitAlertable(0), WaitResult::timed_out);
}

TEST(HostSemaphore, WaiterThatGivesUpLeavesTheOneBeforeItInLine) {
    HostSemaphore semaphore(0, 1);
    // Runs while this thread stands in line. The other one stands behind it and gives up.
    test::WhenWaiting const behind([&semaphore] {
        std::thread([&semaphore] { EXPECT_EQ(semaphore.waitAlertable(1), WaitResult::timed_out); }).join();
        EXPECT_TRUE(semaphore.post(1));
    });
    WaitResult result = semaphore.waitAlertable(WAIT_FOREVER);
    if (result == WaitResult::completed_io) result = semaphore.waitAlertable(WAIT_FOREVER);  // some hosts say so first
    EXPECT_EQ(result, WaitResult::taken);
    EXPECT_EQ(semaphore.waitAlertable(0), WaitResult::timed_out);
}

TEST(HostSemaphore, UnitsThatRaceWithTimeOutsAreNeverLost) {
    constexpr int UNITS = 2000;
    HostSemaphore semaphore(0, UNITS);
    std::thread poster([&semaphore] {
        for (int unit = 0; unit < UNITS; ++unit)
            EXPECT_TRUE(semaphore.post(1));
    });
    for (int taken = 0; taken < UNITS;) {
        if (semaphore.waitAlertable(taken % 2 == 0 ? 0 : 1) == WaitResult::taken) ++taken;
    }
    poster.join();
    EXPECT_EQ(semaphore.waitAlertable(0), WaitResult::timed_out);
}

TEST(HostSemaphore, MayBeDestroyedWhileThePostReturns) {
    for (int round = 0; round < 1000; ++round) {
        auto semaphore = std::make_unique<HostSemaphore>(0, 1);
        std::thread poster([raw = semaphore.get()] { EXPECT_TRUE(raw->post(1)); });
        EXPECT_EQ(semaphore->waitAlertable(WAIT_FOREVER), WaitResult::taken);
        semaphore.reset();
        poster.join();
    }
}

}  // namespace
}  // namespace KelvonClip::platform
