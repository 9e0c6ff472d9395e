#include "foundation/kprotect.h"

#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace KelvonClip {
namespace {

TEST(KProtect, GivesTheInitialValueAndKeepsChanges) {
    KProtect<std::vector<int>> list({1, 2});
    list.lock().value.push_back(3);
    EXPECT_EQ(list.lock().value, (std::vector<int>{1, 2, 3}));
}

TEST(KProtect, WithoutAnInitialValueBeginsEmpty) {
    KProtect<int> number;
    EXPECT_EQ(number.lock().value, 0);
}

TEST(KProtect, MayBeLockedAgainByTheThreadThatHoldsIt) {
    KProtect<int> number;
    auto const outer = number.lock();
    number.lock().value = 7;
    EXPECT_EQ(outer.value, 7);
}

TEST(KProtect, CopiesOfAnItemKeepItLocked) {
    KProtect<int> number;
    std::thread other;
    {
        auto copy = number.lock();
        {
            auto const item = copy;
            other = std::thread([&number] { number.lock().value += 1; });
        }
        copy.value = 10;  // before the other thread's change, however late this runs
    }
    other.join();
    EXPECT_EQ(number.lock().value, 11);
}

TEST(KProtect, KeepsThreadsApart) {
    KProtect<int> number;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&number] {
            for (int round = 0; round < 1000; ++round)
                ++number.lock().value;
        });
    }
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(number.lock().value, 4000);
}

}  // namespace
}  // namespace KelvonClip
