// A registry of open readers or writers, by handle.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "foundation/kprotect.h"

namespace KelvonClip {

// A stream that was found stays valid while the pointer is held, even if it is removed meanwhile.
// Threads: any; the lock is held for look-ups only.
template <class Stream>
class StreamRegistry {
  public:
    using Pointer = std::shared_ptr<Stream>;

    void add(Pointer const& stream) { streams.hold().value.emplace(stream->handle(), stream); }

    Pointer find(std::uint32_t handle) {
        auto item = streams.hold();
        auto const entry = item.value.find(handle);
        return entry == item.value.end() ? nullptr : entry->second;
    }

    // Removes the stream and returns it; if two threads try, only one gets it.
    Pointer remove(std::uint32_t handle) {
        auto item = streams.hold();
        auto entry = item.value.extract(handle);
        return entry ? std::move(entry.mapped()) : nullptr;
    }

    std::vector<Pointer> removeAll() {
        auto item = streams.hold();
        std::vector<Pointer> all;
        for (auto& entry : std::exchange(item.value, {}))
            all.push_back(std::move(entry.second));
        return all;
    }

  private:
    KProtect<std::map<std::uint32_t, Pointer>> streams;
};

}  // namespace KelvonClip
