// Background tasks: the Windows thread pool there, a pool of a well-kept library on Linux.
#pragma once

#include <functional>

namespace KelvonClip::platform {

// Runs `task` on some pool thread, soon. The task must not throw and must have waited for all I/O it issued before it
// returns: completions run only on the issuing thread. Throws when the host cannot take the task.
// A task that holds no more than a pointer needs no memory once the pool has run as many before.
// Tasks may block; the pool grows or queues as the host's pool does. At the end of the library the issuer, not the
// pool, waits for its tasks.
void runInBackground(std::function<void()> task);

}  // namespace KelvonClip::platform
