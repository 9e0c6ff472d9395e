// What this host's part of the library does when the library is loaded, when it is unloaded and around a fork.
//
// Static objects of the library write back what they hold when they are destroyed, so the platform has to be the last
// to end. A destructor function of the highest rank runs after all of them, at the end of the process as well as when
// the library is unloaded.
#include <pthread.h>

#include "platform/linux/io_queue.h"
#include "platform/linux/task_pool.h"

namespace KelvonClip::platform {

namespace {

constexpr int HIGHEST_PRIORITY = 101;  // its constructors run first, its destructors last

// A child process has the calling thread only. It begins afresh: rings and tasks are the parent's.
[[gnu::constructor(HIGHEST_PRIORITY)]] void beginPlatform() {
    ::pthread_atfork(
        [] {
            lockTaskPoolForFork();
            lockIoQueuesForFork();
        },
        [] {
            unlockIoQueuesAfterFork(false);
            unlockTaskPoolAfterFork(false);
        },
        [] {
            unlockIoQueuesAfterFork(true);
            unlockTaskPoolAfterFork(true);
        });
}

// Tasks first: they wait for I/O.
[[gnu::destructor(HIGHEST_PRIORITY)]] void endPlatform() {
    endTaskPool();
    endIoQueues();
}

}  // namespace

}  // namespace KelvonClip::platform
