// Ending the task pool, and handling it around a fork.
#pragma once

namespace KelvonClip::platform {

// Called when the library ends: finishes the tasks in the pool, then joins its threads. Later tasks are refused.
void endTaskPool();

// Called around a fork. The child has none of the pool's threads and starts without a pool.
void lockTaskPoolForFork();
void unlockTaskPoolAfterFork(bool in_child);

}  // namespace KelvonClip::platform
