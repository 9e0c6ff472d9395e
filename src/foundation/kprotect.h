// A value that can be accessed only while its lock is held. All registries of the library use it.
#pragma once

#include <memory>
#include <mutex>
#include <utility>

#include "foundation/kmutexlock.h"

namespace KelvonClip {

template <class T>
class KProtect {
  public:
    // The locked value. The lock is held as long as the item lives.
    struct ItemObject {
        std::shared_ptr<KMutexLock::Locker> locker;
        T& value;
    };
    // The same for a scope; allocates nothing.
    struct HeldItem {
        std::unique_lock<std::recursive_mutex> lock;
        T& value;
    };

    KProtect() = default;
    explicit KProtect(T initial) : value(std::move(initial)) {}
    KProtect(KProtect const&) = delete;
    KProtect& operator=(KProtect const&) = delete;

    ItemObject lock() { return {mutex.lock(), value}; }
    HeldItem hold() { return {mutex.hold(), value}; }

  private:
    T value{};
    KMutexLock mutex;
};

}  // namespace KelvonClip
