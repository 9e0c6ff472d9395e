// A counting semaphore whose waits are alertable: completions of I/O that the waiting thread issued run on it while it
// waits.
#pragma once

#include <cstdint>
#include <optional>

#include "foundation/kmutexlock.h"
#include "platform/wait.h"

namespace KelvonClip {

class KSemaphore {
  public:
    static constexpr std::uint32_t FOREVER = platform::WAIT_FOREVER;

    // The form for I/O completion: at most one unit, of which `initial` (0 or 1) are there at the start.
    explicit KSemaphore(std::uint32_t initial) : KSemaphore(initial, 1) {}
    KSemaphore(std::uint32_t initial, std::uint32_t max);

    // Releases one unit. Threads: any.
    void post();

    // Takes n units, or none: true once all are taken, false when `timeout_ms` passed without a completion or a unit
    // (every completion that runs restarts the time-out) or when n exceeds the greatest count. n = 0 never blocks.
    bool wait(std::uint32_t n = 1, std::uint32_t timeout_ms = FOREVER);

  private:
    std::uint32_t max_count;
    platform::HostSemaphore semaphore;
    // Serialises waiters that take more than one unit, so that two never share out the units; there when any can.
    std::optional<KMutexLock> multi_unit_lock;
};

}  // namespace KelvonClip
