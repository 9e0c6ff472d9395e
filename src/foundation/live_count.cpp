#include "foundation/live_count.h"

#include "foundation/ksemaphore.h"
#include "foundation/locked.h"
#include "platform/host.h"

namespace KelvonClip {

void LiveCount::add() {
    auto const hold = locked(mutex);
    ++live;
}

void LiveCount::remove() {
    auto const hold = locked(mutex);
    if (--live > 0) return;
    for (KSemaphore* waiter : waiting)
        waiter->post();
}

std::uint64_t LiveCount::count() {
    auto const hold = locked(mutex);
    return live;
}

bool LiveCount::waitForNone(std::uint32_t timeout_ms) {
    if (platform::otherThreadsAreGone()) return false;
    KSemaphore none_left(0);
    {
        auto const hold = locked(mutex);
        if (live == 0) return true;
        waiting.push_back(&none_left);
    }
    bool const came_down = none_left.wait(1, timeout_ms);
    // remove() posts under the lock. Once this thread holds it, no other thread uses the semaphore.
    auto const hold = locked(mutex);
    std::erase(waiting, &none_left);
    return came_down;
}

}  // namespace KelvonClip
