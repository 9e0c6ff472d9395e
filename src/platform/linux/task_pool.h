// The ends of the task pool's life that the library itself brings about.
#pragma once

namespace KelvonClip::platform {

// The end of the library: the tasks that were handed over run to their end, then the pool's threads. Later tasks are
// refused.
void endTaskPool();

// Around a fork: the child, which has none of the pool's threads, begins without a pool.
void lockTaskPoolForFork();
void unlockTaskPoolAfterFork(bool in_child);

}  // namespace KelvonClip::platform
