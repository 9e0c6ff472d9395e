// Alertable waits: completions of the calling thread's own I/O run during such a wait, and only then.
#pragma once

#include <cstddef>
#include <cstdint>

namespace KelvonClip::platform {

constexpr std::uint32_t WAIT_FOREVER = 0xFFFFFFFF;  // milliseconds

enum class WaitResult {
    taken,         // the count was decremented by one
    timed_out,     // the time-out expired, without a unit and without a completion
    completed_io,  // completions of this thread's I/O ran; the count was not changed
    failed,
};

// A counting semaphore. Threads: any. A waiter may destroy it as soon as its wait has taken the unit, even while the
// post that released the unit is still returning.
class HostSemaphore {
  public:
    HostSemaphore(std::uint32_t initial, std::uint32_t max);
    ~HostSemaphore();
    HostSemaphore(HostSemaphore const&) = delete;
    HostSemaphore& operator=(HostSemaphore const&) = delete;

    // Adds `count` units; false, and no change, if that would exceed `max`.
    bool post(std::uint32_t count);
    WaitResult waitAlertable(std::uint32_t timeout_ms);

  private:
    struct State;
    State& state();  // the host's sources know what it is

    alignas(8) std::byte
        host_state[128];  // the host's own State, in place: every operation that is waited for makes one
};

}  // namespace KelvonClip::platform
