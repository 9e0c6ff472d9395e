#include "foundation/kprotect.h"

#include <memory>
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

// The lock is there as long as its locker is (kmutexlock_test.cpp).
TEST(KProtect, CopiesOfAnItemKeepItLocked) {
    KProtect<int> number;
    auto item = std::make_unique<KProtect<int>::ItemObject>(number.lock());
    auto const copy = *item;
    std::weak_ptr<KMutexLock::Locker> const locker = item->locker;
    item.reset();
    EXPECT_EQ(locker.lock(), copy.locker);
    EXPECT_NE(copy.locker, nullptr);
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
