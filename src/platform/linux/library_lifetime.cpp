// Start and end of the platform layer: when the library is loaded and unloaded, and around a fork.
//
// Static objects of the library write to files when they are destroyed, so the platform layer must end last. A
// destructor function of the highest priority runs after all of them, at the end of the process and when the library is
// unloaded.
#include <pthread.h>

#include "platform/linux/fork_count.h"
#include "platform/linux/io_queue.h"
#include "platform/linux/shared_pages.h"
#include "platform/linux/task_pool.h"

namespace KelvonClip::platform {

namespace {

constexpr int HIGHEST_PRIORITY = 101;  // its constructors run first, its destructors last

// A child process has only the calling thread. It starts without rings and tasks, which belong to the parent.
[[gnu::constructor(HIGHEST_PRIORITY)]] void beginPlatform() {
    ::pthread_atfork(
        [] {
            lockTaskPoolForFork();
            lockIoQueuesForFork();
            lockSharedPagesForFork();
        },
        [] {
            unlockSharedPagesAfterFork();
            unlockIoQueuesAfterFork(false);
            unlockTaskPoolAfterFork(false);
        },
        [] {
            countFork();
            unlockSharedPagesAfterFork();
            unlockIoQueuesAfterFork(true);
            unlockTaskPoolAfterFork(true);
        });
}

// Tasks end first, because they wait for I/O.
[[gnu::destructor(HIGHEST_PRIORITY)]] void endPlatform() {
    endTaskPool();
    endIoQueues();
}

}  // namespace

}  // namespace KelvonClip::platform
