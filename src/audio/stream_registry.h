// A registry of open readers or writers, by handle.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <utility>

#include "foundation/kprotect.h"

namespace KelvonClip {

// A stream that was found stays valid while the pointer is held, even if it is removed meanwhile.
// Threads: any; the lock is held for look-ups only.
template <class Stream>
class StreamRegistry {
  public:
    using Pointer = std::shared_ptr<Stream>;
    using Streams = std::map<std::uint32_t, Pointer>;

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

    // Removes the stream while `work` is done on it: for good, unless the work throws. Returns what the work returns,
    // and `unknown` for an unknown handle.
    template <class Work, class Result>
    Result removeAfter(std::uint32_t handle, Work&& work, Result unknown) {
        auto entry = streams.hold().value.extract(handle);
        if (!entry) return unknown;
        try {
            return std::forward<Work>(work)(*entry.mapped());
        } catch (...) {
            streams.hold().value.insert(std::move(entry));  // the node is there already: needs no memory
            throw;
        }
    }

    Streams removeAll() { return std::exchange(streams.hold().value, {}); }

  private:
    KProtect<Streams> streams;
};

}  // namespace KelvonClip
