// A replacement for std::latch that never loses a wake-up.
//
// On Windows, the C++ library of GCC 12 loses wake-ups: it checks the value that it waits for without holding the lock
// of the notification. std::latch, std::barrier, std::counting_semaphore and std::atomic::wait then sometimes sleep for
// ever. None of them is used in this project (scripts/check-layers).
#pragma once

#include <condition_variable>
#include <cstddef>
#include <mutex>

namespace KelvonClip::test {

// Threads: any. It must outlive every call on it.
class Latch {
  public:
    explicit Latch(std::ptrdiff_t count) : missing(count) {}
    Latch(Latch const&) = delete;
    Latch& operator=(Latch const&) = delete;

    void count_down() {
        std::lock_guard const held(mutex);
        if (--missing == 0) opened.notify_all();
    }
    bool try_wait() const {
        std::lock_guard const held(mutex);
        return missing == 0;
    }
    void wait() {
        std::unique_lock held(mutex);
        opened.wait(held, [this] { return missing == 0; });
    }

  private:
    mutable std::mutex mutex;
    std::condition_variable opened;
    std::ptrdiff_t missing;
};

}  // namespace KelvonClip::test
