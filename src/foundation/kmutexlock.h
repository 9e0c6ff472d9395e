// A recursive mutex and its locker. Copies of a KMutexLock share one mutex.
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

    // Some hosts allocate what stands behind a mutex when it is locked for the first time: that is done here, where a
    // failure (std::system_error) does no harm.
    KMutexLock() : mutex(std::make_shared<std::recursive_mutex>()) { static_cast<void>(hold()); }

    // Blocks until the mutex is this thread's; the owning thread may lock it again.
    // Throws std::system_error when the host refuses.
    std::shared_ptr<Locker> lock() const { return std::allocate_shared<Locker>(platform::Recycling<Locker>(), mutex); }

    // The same for a scope: needs no memory, so destructors can rely on it. Nothing keeps the mutex alive meanwhile.
    std::unique_lock<std::recursive_mutex> hold() const { return locked(*mutex); }

  private:
    std::shared_ptr<std::recursive_mutex> mutex;
};

}  // namespace KelvonClip
