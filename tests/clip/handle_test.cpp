#include "clip/handle.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <memory>
#include <set>
#include <thread>
#include <vector>

namespace KelvonClip {
namespace {

TEST(Handle, FirstNumberOfAProcessIsOneAndNumbersRiseByOne) {
    if (testing::UnitTest::GetInstance()->test_to_run_count() > 1) GTEST_SKIP() << "holds in a fresh process only";
    HandleObject first, second, third;
    EXPECT_EQ(first.number(), 1u);
    EXPECT_EQ(second.number(), 2u);
    EXPECT_EQ(third.number(), 3u);
}

TEST(Handle, NumberGivenBackIsNotIssuedAgainBeforeTheCounterWraps) {
    std::uint32_t gone;
    {
        HandleObject handle;
        gone = handle.number();
    }
    HandleObject next;
    EXPECT_EQ(next.number(), gone + 1);
}

TEST(Handle, CounterWrapsPastZeroAndNumbersInUse) {
    HandleSpace space(0xFFFFFFFF);
    EXPECT_EQ(space.allocate(), 0xFFFFFFFFu);
    EXPECT_EQ(space.allocate(), 1u);  // never 0

    HandleSpace crowded(0);
    EXPECT_EQ(crowded.allocate(), 1u);
    EXPECT_EQ(crowded.allocate(), 2u);
    EXPECT_EQ(crowded.allocate(), 3u);
    crowded.release(2);
    EXPECT_EQ(crowded.allocate(), 4u) << "a free number below the counter waits for the wrap";
}

TEST(Handle, WrappedCounterReissuesOnlyFreeNumbers) {
    HandleSpace space(0xFFFFFFFE);
    EXPECT_EQ(space.allocate(), 0xFFFFFFFEu);
    EXPECT_EQ(space.allocate(), 0xFFFFFFFFu);
    EXPECT_EQ(space.allocate(), 1u);
    EXPECT_EQ(space.allocate(), 2u);
    space.release(0xFFFFFFFE);
    space.release(7);  // was never issued: nothing happens
    EXPECT_EQ(space.allocate(), 3u);
}

TEST(Handle, ThreadsNeverShareANumber) {
    constexpr int THREADS = 8, EACH = 500;
    std::vector<std::vector<std::uint32_t>> numbers(THREADS);
    std::vector<std::thread> threads;
    for (int i = 0; i < THREADS; ++i)
        threads.emplace_back([&mine = numbers[static_cast<std::size_t>(i)]] {
            std::vector<std::unique_ptr<HandleObject>> kept;
            for (int n = 0; n < EACH; ++n) {
                kept.push_back(std::make_unique<HandleObject>());
                mine.push_back(kept.back()->number());
                HandleObject passing;  // given back at once
                mine.push_back(passing.number());
            }
        });
    for (auto& thread : threads)
        thread.join();
    std::set<std::uint32_t> seen;
    for (auto const& mine : numbers)
        seen.insert(mine.begin(), mine.end());
    EXPECT_EQ(seen.size(), static_cast<std::size_t>(THREADS) * EACH * 2);
    EXPECT_FALSE(seen.contains(0));
}

}  // namespace
}  // namespace KelvonClip
