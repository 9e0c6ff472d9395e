#include "clip/clip_name_turn.h"

#include <atomic>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/latch.h"

namespace KelvonClip {
namespace {

KString const ONE = "one", OTHER = "other";

TEST(ClipNameTurn, ThreadsWithOneNameTakeTurns) {
    std::atomic<int> inside = 0;
    int turns = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([&] {
            KString const same = "one";
            for (int round = 0; round < 200; ++round) {
                ClipNameTurn const turn(same);
                EXPECT_EQ(++inside, 1);
                ++turns;
                --inside;
            }
        });
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(turns, 8 * 200);
}

TEST(ClipNameTurn, AnotherNameIsNotWaitedFor) {
    ClipNameTurn const turn(ONE);
    std::thread([] { ClipNameTurn const another(OTHER); }).join();
}

TEST(ClipNameTurn, AThreadMayTakeATurnThatItHas) {
    test::Latch nested_ended(1);
    std::atomic<bool> over = false;
    std::thread waiting;
    {
        ClipNameTurn const turn(ONE);
        { ClipNameTurn const nested(ONE); }
        waiting = std::thread([&] {
            nested_ended.wait();
            ClipNameTurn const next(ONE);
            EXPECT_TRUE(over) << "the outer turn goes on after the nested one";
        });
        nested_ended.count_down();
        std::this_thread::yield();
        over = true;
    }
    waiting.join();
}

}  // namespace
}  // namespace KelvonClip
