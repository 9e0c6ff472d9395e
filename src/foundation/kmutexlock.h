// A recursive mutex and its locker. Copies of a KMutexLock share one mutex.
//
// Every look-up in a registry takes a locker, and some are on paths that run thousands of times a second; so lockers lie
// in recycled memory.
#pragma once

#include <memory>
#include <mutex>
#include <utility>

#include "foundation/locked.h"
#include "platform/recycled_memory.h"

namespace KelvonClip {

class KMutexLock {
  public:
    // Keeps the mutex alive and locked from construction to destruction. Handed around by shared pointer: the mutex is
    // unlocked when the last reference goes, which must happen on the thread that locked it.
    class Locker {
      public:
        explicit Locker(std::shared_ptr<std::recursive_mutex> shared)
            : mutex(std::move(shared)), lock(locked(*mutex)) {}

      private:
        std::shared_ptr<std::recursive_mutex> mutex;
        std::unique_lock<std::recursive_mutex> lock;
    };

    KMutexLock() : mutex(std::make_shared<std::recursive_mutex>()) {}

    // Blocks until the mutex is this thread's; the owning thread may lock it again.
    // Throws std::system_error when the host refuses.
    std::shared_ptr<Locker> lock() const { return std::allocate_shared<Locker>(platform::Recycling<Locker>(), mutex); }

  private:
    std::shared_ptr<std::recursive_mutex> mutex;
};

}  // namespace KelvonClip
