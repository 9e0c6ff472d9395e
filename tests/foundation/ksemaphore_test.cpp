#include "foundation/ksemaphore.h"

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace KelvonClip {
namespace {

// Runs `work` and returns what it has written to the standard error stream.
template <class Work>
std::string reportedBy(Work work) {
    testing::internal::CaptureStderr();
    work();
    return testing::internal::GetCapturedStderr();
}

void expectAssertion(std::string const& reported) {
    EXPECT_EQ(reported.rfind("ksemaphore:", 0), 0U) << reported;
    EXPECT_NE(reported.find(": Assertion failed: 'n <= max_count'\n"), std::string::npos) << reported;
}

TEST(KSemaphore, WaitingForNothingNeverBlocks) {
    KSemaphore semaphore(0);
    EXPECT_TRUE(semaphore.wait(0));
    EXPECT_TRUE(semaphore.wait(0, 0));
}

TEST(KSemaphore, WaitingForNothingSucceedsEvenWhenNoUnitCanExist) {
    KSemaphore semaphore(0, 0);
    EXPECT_TRUE(semaphore.wait(0));
}

TEST(KSemaphore, InitialUnitIsThereOnce) {
    KSemaphore semaphore(1);
    EXPECT_TRUE(semaphore.wait(1, 0));
    EXPECT_FALSE(semaphore.wait(1, 0));
}

TEST(KSemaphore, PostedUnitIsThereOnce) {
    KSemaphore semaphore(0);
    EXPECT_FALSE(semaphore.wait(1, 0));
    semaphore.post();
    EXPECT_TRUE(semaphore.wait());
    EXPECT_FALSE(semaphore.wait(1, 0));
}

TEST(KSemaphore, NeverHoldsMoreThanItsGreatestCount) {
    KSemaphore semaphore(0);
    semaphore.post();
    semaphore.post();
    EXPECT_TRUE(semaphore.wait(1, 0));
    EXPECT_FALSE(semaphore.wait(1, 0));
}

TEST(KSemaphore, AskingForMoreThanTheGreatestCountFailsAtOnce) {
    KSemaphore semaphore(1);
    bool taken = true;
    expectAssertion(reportedBy([&] { taken = semaphore.wait(2); }));
    EXPECT_FALSE(taken);
    EXPECT_TRUE(semaphore.wait(1, 0)) << "the unit that is there stays there";
}

TEST(KSemaphore, PostingWhereNoUnitCanExistIsReported) {
    KSemaphore semaphore(0, 0);
    expectAssertion(reportedBy([&] { semaphore.post(); }));
}

TEST(KSemaphore, TakesSeveralUnitsAtOnce) {
    KSemaphore semaphore(3, 5);
    EXPECT_TRUE(semaphore.wait(3, 0));
    EXPECT_FALSE(semaphore.wait(1, 0));
}

TEST(KSemaphore, TimeOutAfterPartOfTheUnitsGivesThemBack) {
    KSemaphore semaphore(1, 2);
    EXPECT_FALSE(semaphore.wait(2, 0));
    EXPECT_TRUE(semaphore.wait(1, 0));
    EXPECT_FALSE(semaphore.wait(1, 0)) << "no more than were there before";
    semaphore.post();
    semaphore.post();
    EXPECT_TRUE(semaphore.wait(2, 0));
}

TEST(KSemaphore, FailedWaitOfAnyLengthLeavesNothingBehind) {
    KSemaphore semaphore(0);
    EXPECT_FALSE(semaphore.wait(1, 1));
    semaphore.post();
    EXPECT_TRUE(semaphore.wait(1, 0)) << "the unit isn't kept for the waiter that has gone";
}

TEST(KSemaphore, PostFromAnotherThreadEndsTheWait) {
    KSemaphore semaphore(0);
    std::thread poster([&] { semaphore.post(); });
    EXPECT_TRUE(semaphore.wait());
    poster.join();
}

TEST(KSemaphore, MayBeDestroyedAsSoonAsTheWaitHasTheUnit) {
    for (int round = 0; round < 500; ++round) {
        auto semaphore = std::make_unique<KSemaphore>(0);
        std::thread poster([raw = semaphore.get()] { raw->post(); });
        EXPECT_TRUE(semaphore->wait());
        semaphore.reset();
        poster.join();
    }
}

TEST(KSemaphore, EveryPostedUnitIsTakenByExactlyOneWaiter) {
    constexpr int WAITERS = 4, EACH = 500;
    KSemaphore semaphore(0, WAITERS * EACH);
    std::atomic<int> taken{0};
    std::vector<std::thread> waiters;
    for (int waiter = 0; waiter < WAITERS; ++waiter) {
        waiters.emplace_back([&] {
            for (int unit = 0; unit < EACH; ++unit)
                taken += semaphore.wait() ? 1 : 0;
        });
    }
    for (int unit = 0; unit < WAITERS * EACH; ++unit)
        semaphore.post();
    for (auto& waiter : waiters)
        waiter.join();
    EXPECT_EQ(taken, WAITERS * EACH);
    EXPECT_FALSE(semaphore.wait(1, 0));
}

// Two waiters wait for two units each, and only two units are available at a time. If each of them took one, both would
// wait for ever.
TEST(KSemaphore, WaitersForSeveralUnitsNeverShareThemOut) {
    KSemaphore semaphore(0, 2);
    constexpr int ROUNDS = 300;
    auto const take_pairs = [&] {
        for (int round = 0; round < ROUNDS; ++round) {
            ASSERT_TRUE(semaphore.wait(2));
            semaphore.post();
            semaphore.post();
        }
    };
    std::thread one(take_pairs), other(take_pairs);
    semaphore.post();
    semaphore.post();
    one.join();
    other.join();
    EXPECT_TRUE(semaphore.wait(2, 0));
}

}  // namespace
}  // namespace KelvonClip
