#include "foundation/kmutexlock.h"

#include <atomic>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace KelvonClip {
namespace {

// Whether another thread could lock the mutex now: asked of a copy, which shares it.
class Probe {
  public:
    explicit Probe(KMutexLock const& lock)
        : thread([this, copy = lock] {
              auto const locker = copy.lock();
              entered = true;
          }) {}
    ~Probe() { thread.join(); }
    std::atomic<bool> entered{false};

  private:
    std::thread thread;
};

TEST(KMutexLock, OwningThreadMayLockAgain) {
    KMutexLock const mutex;
    auto const first = mutex.lock();
    auto const second = mutex.lock();
    EXPECT_NE(first, second);
}

TEST(KMutexLock, StaysLockedUntilTheLastReferenceToTheLockerGoes) {
    KMutexLock const mutex;
    auto first = mutex.lock();
    auto copy = first;
    {
        Probe const probe(mutex);
        first.reset();
        EXPECT_FALSE(probe.entered) << "the copy still holds the mutex";
        copy.reset();
    }  // the probe ends, so it got the mutex
}

TEST(KMutexLock, StaysLockedUntilEveryLockOfTheOwningThreadIsGone) {
    KMutexLock const mutex;
    auto outer = mutex.lock();
    auto inner = mutex.lock();
    {
        Probe const probe(mutex);
        inner.reset();
        EXPECT_FALSE(probe.entered);
        outer.reset();
    }
}

TEST(KMutexLock, MayBeHeldForAScope) {
    KMutexLock const mutex;
    auto outer = mutex.hold();
    auto inner = mutex.lock();
    {
        Probe const probe(mutex);
        inner.reset();
        EXPECT_FALSE(probe.entered);
        outer.unlock();
    }
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
