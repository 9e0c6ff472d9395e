#include "foundation/ksemaphore.h"

#include <mutex>

#include "foundation/kassert.h"

namespace KelvonClip {

KSemaphore::KSemaphore(std::uint32_t initial, std::uint32_t max) : max_count(max), semaphore(initial, max) {
    if (max > 1) multi_unit_lock.emplace();
}

void KSemaphore::post() {
    if (!kassert(max_count > 0, "ksemaphore", __LINE__, "n <= max_count")) return;
    semaphore.post(1);
}

bool KSemaphore::wait(std::uint32_t n, std::uint32_t timeout_ms) {
    if (n == 0) return true;
    if (!kassert(n <= max_count, "ksemaphore", __LINE__, "n <= max_count")) return false;

    std::unique_lock<std::recursive_mutex> exclusive;
    if (n > 1) exclusive = multi_unit_lock->hold();
    for (std::uint32_t taken = 0; taken < n;) {
        // KEEP: any result but a unit or a time-out restarts the time-out; in particular completions of I/O do.
        switch (semaphore.waitAlertable(timeout_ms)) {
        case platform::WaitResult::taken:
            ++taken;
            break;
        case platform::WaitResult::timed_out:
            if (taken > 0) semaphore.post(taken);
            return false;
        case platform::WaitResult::completed_io:
        case platform::WaitResult::failed:
            break;
        }
    }
    return true;
}

}  // namespace KelvonClip
