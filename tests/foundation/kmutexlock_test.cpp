#include "foundation/kmutexlock.h"

#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace KelvonClip {
namespace {

// Whether another thread could lock the mutex now: asked of a copy, which shares it.
bool freeForOthers(KMutexLock const& mutex) {
    bool could_lock = false;
    std::thread([&could_lock, copy = mutex] { could_lock = copy.tryHold().owns_lock(); }).join();
    return could_lock;
}

TEST(KMutexLock, OwningThreadMayLockAgain) {
    KMutexLock const mutex;
    auto const first = mutex.lock();
    auto const second = mutex.lock();
    EXPECT_NE(first, second);
}

TEST(KMutexLock, StaysLockedUntilTheLastReferenceToTheLockerGoes) {
    KMutexLock const mutex;
    EXPECT_TRUE(freeForOthers(mutex));
    auto first = mutex.lock();
    auto copy = first;
    EXPECT_FALSE(freeForOthers(mutex));
    first.reset();
    EXPECT_FALSE(freeForOthers(mutex)) << "the copy still holds the mutex";
    copy.reset();
    EXPECT_TRUE(freeForOthers(mutex));
}

TEST(KMutexLock, StaysLockedUntilEveryLockOfTheOwningThreadIsGone) {
    KMutexLock const mutex;
    auto outer = mutex.lock();
    {
        auto const inner = mutex.tryHold();
        EXPECT_TRUE(inner.owns_lock()) << "its own thread may lock it again";
    }
    EXPECT_FALSE(freeForOthers(mutex));
    outer.reset();
    EXPECT_TRUE(freeForOthers(mutex));
}

TEST(KMutexLock, MayBeHeldForAScope) {
    KMutexLock const mutex;
    auto outer = mutex.hold();
    auto inner = mutex.lock();
    inner.reset();
    EXPECT_FALSE(freeForOthers(mutex));
    outer.unlock();
    EXPECT_TRUE(freeForOthers(mutex));
}

TEST(KMutexLock, LockerKeepsTheMutexAlive) {
    auto mutex = std::make_unique<KMutexLock>();
    auto const locker = mutex->lock();
    mutex.reset();
}

TEST(KMutexLock, KeepsThreadsApart) {
    KMutexLock const mutex;
    int unguarded = 0;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&unguarded, copy = mutex] {
            for (int round = 0; round < 1000; ++round) {
                auto const locker = copy.lock();
                ++unguarded;
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(unguarded, 4000);
}

TEST(KMutexLock, TheMemoryOfALockerServesTheNext) {
    KMutexLock const mutex;
    auto const* const first = mutex.lock().get();
    auto const outer = mutex.lock();
    EXPECT_EQ(outer.get(), first);
    auto const inner = mutex.lock();  // one at a time is kept; a second has its own
    EXPECT_NE(inner.get(), first);
}

}  // namespace
}  // namespace KelvonClip
