// Background tasks: the process's thread pool on Windows, a pool of the library's own on Linux.
#pragma once

#include <functional>

namespace KelvonClip::platform {

// Runs `task` on a pool thread. The task must not throw. It must wait for all I/O that it issues before it returns,
// because completions run on the issuing thread only. Throws when the host cannot accept the task.
// A task that captures one pointer at most allocates nothing once the pool has run as many tasks at a time before.
// Tasks may block; the pool starts further threads (Windows) or queues the task (Linux). When the library ends, waiting
// for the tasks is up to their issuer, not to the pool.
void runInBackground(std::function<void()> task);

}  // namespace KelvonClip::platform
