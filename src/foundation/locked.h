// Locking that cannot block while the process ends.
#pragma once

#include <mutex>

#include "platform/host.h"

namespace KelvonClip {

// Locks the mutex as long as the result lives. Once the host has terminated all other threads, a mutex that one of them
// held is not waited for: nobody can unlock it any more, and nobody needs to be kept out. Waiting would hang, and data
// of all open files would be lost. Throws std::system_error if the host refuses the lock.
template <class Mutex>
std::unique_lock<Mutex> locked(Mutex& mutex) {
    if (!platform::otherThreadsAreGone()) return std::unique_lock(mutex);
    return std::unique_lock(mutex, std::try_to_lock);
}

}  // namespace KelvonClip
