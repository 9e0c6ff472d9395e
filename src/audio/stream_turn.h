// Who uses a stream. Callers promise to use a stream one at a time, but the end of the process comes while another
// thread may still be using it, and must not finish the stream under that thread's hands.
#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>
#include <utility>

#include "foundation/kmutexlock.h"
#include "foundation/ksemaphore.h"
#include "platform/host.h"

namespace KelvonClip {

class StreamTurn {
  public:
    // The stream may be used as long as this lives.
    class Taken {
      public:
        Taken(std::unique_lock<std::recursive_mutex> held, std::uint32_t& users)
            : lock(std::move(held)), user_count(users) {
            ++user_count;
        }
        Taken(Taken const&) = delete;
        Taken& operator=(Taken const&) = delete;
        ~Taken() { --user_count; }

      private:
        std::unique_lock<std::recursive_mutex> lock;
        std::uint32_t& user_count;
    };

    // Waits for other threads.
    Taken take() { return {lock.hold(), users}; }

    // For the end of the process. Waits, alertably, until `deadline` at most. None if another thread, or a function
    // below this one on the stack, uses the stream: it is in the middle of a change.
    std::optional<Taken> takeUntil(std::chrono::steady_clock::time_point deadline) {
        constexpr std::uint32_t PAUSE_MS = 1;
        KSemaphore never(0);
        for (;;) {
            if (auto held = lock.tryHold()) {
                if (users > 0) return std::nullopt;
                return std::optional<Taken>(std::in_place, std::move(held), users);
            }
            // A thread that is gone never releases the lock.
            bool const hopeless = platform::otherThreadsAreGone();
            if (hopeless || std::chrono::steady_clock::now() >= deadline) return std::nullopt;
            never.wait(1, PAUSE_MS);
        }
    }

  private:
    KMutexLock lock;
    std::uint32_t users = 0;  // on the stack of the thread that holds the lock
};

}  // namespace KelvonClip
