#include "foundation/kprotect.h"

#include <string>
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

using Registry = SharedRegistry<int, std::string>;

TEST(SharedRegistry, FindsOnlyWhatIsAlive) {
    Registry registry;
    EXPECT_EQ(findLive(registry, 1), nullptr);
    auto made = findOrMake(registry, 1, [] { return std::make_shared<std::string>("one"); });
    EXPECT_EQ(findLive(registry, 1), made);
    EXPECT_EQ(findLive(registry, 2), nullptr);
    made.reset();
    EXPECT_EQ(findLive(registry, 1), nullptr);
}

TEST(SharedRegistry, SecondMakerGetsTheFirstObject) {
    Registry registry;
    auto const made = findOrMake(registry, 1, [] { return std::make_shared<std::string>("first"); });
    auto const again = findOrMake(registry, 1, []() -> std::shared_ptr<std::string> {
        ADD_FAILURE() << "made although it is alive";
        return nullptr;
    });
    EXPECT_EQ(again, made);
}

TEST(SharedRegistry, ExpiredEntryIsMadeAnew) {
    Registry registry;
    findOrMake(registry, 1, [] { return std::make_shared<std::string>("first"); }).reset();
    auto const second = findOrMake(registry, 1, [] { return std::make_shared<std::string>("second"); });
    EXPECT_EQ(*second, "second");
}

TEST(SharedRegistry, FailedMakingLeavesNothingThatCountsAsOpen) {
    Registry registry;
    EXPECT_EQ(findOrMake(registry, 1, [] { return std::shared_ptr<std::string>(); }), nullptr);
    EXPECT_EQ(findLive(registry, 1), nullptr);
    auto const made = findOrMake(registry, 1, [] { return std::make_shared<std::string>("late"); });
    EXPECT_EQ(findLive(registry, 1), made);
}

TEST(SharedRegistry, ParallelMakersOfOneKeyShareOneObject) {
    Registry registry;
    std::vector<std::shared_ptr<std::string>> got(8);
    std::vector<std::thread> threads;
    for (auto& slot : got) {
        threads.emplace_back(
            [&] { slot = findOrMake(registry, 1, [] { return std::make_shared<std::string>("shared"); }); });
    }
    for (auto& thread : threads)
        thread.join();
    for (auto const& slot : got)
        EXPECT_EQ(slot, got.front());
}

}  // namespace
}  // namespace KelvonClip
