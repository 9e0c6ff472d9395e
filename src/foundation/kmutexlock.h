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
    // Keeps the mutex alive and locked. It is passed around by shared pointer; releasing the last reference unlocks the
    // mutex, and must happen on the thread that locked it.
    class Locker {
      public:
        explicit Locker(std::shared_ptr<std::recursive_mutex> shared)
            : mutex(std::move(shared)), lock(locked(*mutex)) {}

      private:
        std::shared_ptr<std::recursive_mutex> mutex;
        std::unique_lock<std::recursive_mutex> lock;
    };

    // Some hosts allocate memory when a mutex is locked for the first time. The constructor does that, so that a
    // failure (std::system_error) occurs here and not later.
    KMutexLock() : mutex(std::make_shared<std::recursive_mutex>()) { static_cast<void>(hold()); }

    // Blocks until this thread owns the mutex; the owning thread may lock it again.
    // Throws std::system_error if the host refuses.
    std::shared_ptr<Locker> lock() const { return std::allocate_shared<Locker>(platform::Recycling<Locker>(), mutex); }

    // The same for a scope. Allocates nothing, so destructors can use it. Does not keep the mutex alive.
    std::unique_lock<std::recursive_mutex> hold() const { return locked(*mutex); }

    // Does not block. The result owns the mutex unless another thread does.
    std::unique_lock<std::recursive_mutex> tryHold() const { return std::unique_lock(*mutex, std::try_to_lock); }

  private:
    std::shared_ptr<std::recursive_mutex> mutex;
};

}  // namespace KelvonClip
