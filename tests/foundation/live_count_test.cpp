#include "foundation/live_count.h"

#include <future>
#include <optional>
#include <vector>

#include <gtest/gtest.h>

#include "support/latch.h"
#include "support/when_waiting.h"

namespace KelvonClip {
namespace {

constexpr std::uint32_t FOREVER = 0xFFFFFFFF;

TEST(LiveCount, NothingIsNotWaitedFor) {
    LiveCount count;
    EXPECT_TRUE(count.waitForNone(FOREVER));
    count.add();
    count.remove();
    EXPECT_TRUE(count.waitForNone(FOREVER));
}

// Both are removed during the wait; the second only after the wait could have ended with the first.
TEST(LiveCount, WaitsForTheLastOne) {
    LiveCount count;
    count.add();
    count.add();
    std::optional<test::WhenWaiting> last;
    test::WhenWaiting const first([&] {
        count.remove();
        last.emplace([&] { count.remove(); });
    });
    EXPECT_TRUE(count.waitForNone(FOREVER));
    EXPECT_EQ(count.count(), 0u);
}

TEST(LiveCount, GivesUpWhenTheTimeHasPassed) {
    LiveCount count;
    count.add();
    EXPECT_FALSE(count.waitForNone(0));
    EXPECT_FALSE(count.waitForNone(1));
    count.remove();
    EXPECT_TRUE(count.waitForNone(0)) << "the waits that gave up left nothing behind";
}

TEST(LiveCount, EveryWaiterIsTold) {
    LiveCount count;
    count.add();
    test::Latch waiting(3);
    std::vector<std::future<bool>> waiters;
    for (int waiter = 0; waiter < 3; ++waiter)
        waiters.push_back(std::async(std::launch::async, [&] {
            test::WhenWaiting const when_waiting([&] { waiting.count_down(); });
            return count.waitForNone(FOREVER);
        }));
    waiting.wait();
    count.remove();
    for (auto& waiter : waiters)
        EXPECT_TRUE(waiter.get());
}

}  // namespace
}  // namespace KelvonClip
