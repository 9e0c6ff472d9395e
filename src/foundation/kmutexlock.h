// A recursive mutex and its locker. Copies of a KMutexLock share one mutex.
//
// Every look-up in a registry takes a locker, and some are on paths that run thousands of times a second; so the mutex
// keeps the memory of one locker for the next, and locking costs no allocation.
#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <mutex>
#include <new>
#include <utility>

#include "platform/process_end.h"

namespace KelvonClip {

class KMutexLock {
    // The mutex, and the memory of a locker that is gone, or null.
    struct Shared {
        std::recursive_mutex mutex;
        std::atomic<void*> spare{nullptr};

        Shared() = default;
        Shared(Shared const&) = delete;
        Shared& operator=(Shared const&) = delete;
        ~Shared() { ::operator delete(spare.load()); }
    };

    // Used for the one type in which the standard library keeps a locker with its count, so every piece of memory that
    // passes through `spare` has the same size.
    template <class T>
    struct Recycling {
        using value_type = T;
        std::shared_ptr<Shared> shared;

        explicit Recycling(std::shared_ptr<Shared> whose) : shared(std::move(whose)) {}
        template <class Other>
        Recycling(Recycling<Other> const& other) : shared(other.shared) {}

        T* allocate(std::size_t count) {
            void* const spare = shared->spare.exchange(nullptr);
            return static_cast<T*>(spare != nullptr ? spare : ::operator new(count * sizeof(T)));
        }
        void deallocate(T* memory, std::size_t) {
            void* none = nullptr;
            if (!shared->spare.compare_exchange_strong(none, memory)) ::operator delete(memory);
        }
        friend bool operator==(Recycling const& left, Recycling const& right) { return left.shared == right.shared; }
    };

  public:
    // Keeps the mutex alive and locked from construction to destruction. Handed around by shared pointer: the mutex is
    // unlocked when the last reference goes, which must happen on the thread that locked it.
    class Locker {
      public:
        explicit Locker(std::shared_ptr<std::recursive_mutex> shared) : mutex(std::move(shared)), lock(held(*mutex)) {}

      private:
        static std::unique_lock<std::recursive_mutex> held(std::recursive_mutex& mutex) {
            if (!platform::otherThreadsAreGone()) return std::unique_lock(mutex);
            // An owner that is gone never unlocks it, and nobody else is left to be kept out. Most such owners were
            // reading; without going on, everything that is open would be lost.
            return std::unique_lock(mutex, std::try_to_lock);
        }

        std::shared_ptr<std::recursive_mutex> mutex;
        std::unique_lock<std::recursive_mutex> lock;
    };

    KMutexLock() : shared(std::make_shared<Shared>()) {}

    // Blocks until the mutex is this thread's; the owning thread may lock it again.
    // Throws std::system_error when the host refuses.
    std::shared_ptr<Locker> lock() const {
        return std::allocate_shared<Locker>(Recycling<Locker>(shared),
                                            std::shared_ptr<std::recursive_mutex>(shared, &shared->mutex));
    }

  private:
    std::shared_ptr<Shared> shared;
};

}  // namespace KelvonClip
