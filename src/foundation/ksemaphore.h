// A counting semaphore with alertable waits: while a thread waits, the completions of its own I/O run on it.
#pragma once

#include <cstdint>
#include <optional>

#include "foundation/kmutexlock.h"
#include "platform/wait.h"

namespace KelvonClip {

class KSemaphore {
  public:
    static constexpr std::uint32_t FOREVER = platform::WAIT_FOREVER;

    // For I/O completion: a count of 0 or 1, starting at `initial`.
    explicit KSemaphore(std::uint32_t initial) : KSemaphore(initial, 1) {}
    KSemaphore(std::uint32_t initial, std::uint32_t max);

    // Releases one unit. Threads: any.
    void post();

    // Takes n units, all or none. True once all are taken. False when `timeout_ms` expires without a unit and without a
    // completion (every completion that runs restarts the time-out), or at once when n exceeds the maximum. n = 0 never
    // blocks.
    bool wait(std::uint32_t n = 1, std::uint32_t timeout_ms = FOREVER);

  private:
    std::uint32_t max_count;
    platform::HostSemaphore semaphore;
    // Serialises waiters that take more than one unit: otherwise two of them could each take a part of the units and
    // block each other. Only present when max_count > 1.
    std::optional<KMutexLock> multi_unit_lock;
};

}  // namespace KelvonClip
