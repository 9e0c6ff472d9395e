// Alertable waiting: the calling thread's own I/O completions run while it waits, and only then.
#pragma once

#include <cstddef>
#include <cstdint>
#include <new>

namespace KelvonClip::platform {

constexpr std::uint32_t WAIT_FOREVER = 0xFFFFFFFF;  // milliseconds

enum class WaitResult {
    taken,         // one unit was taken
    timed_out,     // the time passed without a unit and without a completion
    completed_io,  // completions of this thread's I/O ran; no unit was taken
    failed,
};

// A counting semaphore of the host. Threads: any; it must outlive every call on it, a post that is still returning
// included (a waiter may destroy it as soon as its wait has taken the unit).
class HostSemaphore {
  public:
    HostSemaphore(std::uint32_t initial, std::uint32_t max);
    ~HostSemaphore();
    HostSemaphore(HostSemaphore const&) = delete;
    HostSemaphore& operator=(HostSemaphore const&) = delete;

    // Releases `count` units; false, with nothing released, when that would exceed the greatest count.
    bool post(std::uint32_t count);
    WaitResult waitAlertable(std::uint32_t timeout_ms);

  private:
    struct State;
    State& state() { return *std::launder(reinterpret_cast<State*>(host_state)); }

    alignas(8) std::byte
        host_state[128];  // the host's own State, in place: every operation that is waited for makes one
};

}  // namespace KelvonClip::platform
