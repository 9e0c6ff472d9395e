// Locks that survive the end of a process.
#pragma once

#include <mutex>

#include "platform/host.h"

namespace KelvonClip {

// Holds the mutex as long as the result lives. Once the host has ended all other threads, a mutex that one of them held
// is not waited for: nobody is left to unlock it or to be kept out, and without going on everything that is open would be
// lost. Throws std::system_error when the host refuses.
template <class Mutex>
std::unique_lock<Mutex> locked(Mutex& mutex) {
    if (!platform::otherThreadsAreGone()) return std::unique_lock(mutex);
    return std::unique_lock(mutex, std::try_to_lock);
}

}  // namespace KelvonClip
