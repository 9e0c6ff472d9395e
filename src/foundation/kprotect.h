// A value that can be reached only while its lock is held: every registry of the library is one.
#pragma once

#include <map>
#include <memory>
#include <utility>

#include "foundation/kmutexlock.h"

namespace KelvonClip {

template <class T>
class KProtect {
  public:
    // What locking gives: the value, for as long as the item lives.
    struct ItemObject {
        std::shared_ptr<KMutexLock::Locker> locker;
        T& value;
    };

    KProtect() = default;
    explicit KProtect(T initial) : value(std::move(initial)) {}
    KProtect(KProtect const&) = delete;
    KProtect& operator=(KProtect const&) = delete;

    ItemObject lock() { return {mutex.lock(), value}; }

  private:
    T value{};
    KMutexLock mutex;
};

// Objects that a second opener shares with the first, by what identifies the thing that is open.
template <class Key, class Kind>
using SharedRegistry = KProtect<std::map<Key, std::weak_ptr<Kind>>>;

// The live object under `key`, or null; an expired entry counts as absent.
template <class Key, class Kind>
std::shared_ptr<Kind> findLive(SharedRegistry<Key, Kind>& registry, Key const& key) {
    auto item = registry.lock();
    auto entry = item.value.find(key);
    return entry == item.value.end() ? nullptr : entry->second.lock();
}

// The live object under `key`, or the one that `make` builds and the registry keeps. The registry stays locked
// throughout, so two openers of one key never build two objects. A null from `make` is not kept.
template <class Key, class Kind, class Make>
std::shared_ptr<Kind> findOrMake(SharedRegistry<Key, Kind>& registry, Key const& key, Make&& make) {
    auto item = registry.lock();
    auto& entry = item.value[key];
    if (auto live = entry.lock()) return live;
    std::shared_ptr<Kind> made = std::forward<Make>(make)();
    entry = made;
    return made;
}

}  // namespace KelvonClip
