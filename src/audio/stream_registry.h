// A registry of open readers or writers, by handle.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <utility>

#include "foundation/kprotect.h"
#include "foundation/kstring.h"

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

    // Does `work` on the stream while nobody else uses it. Returns the work's message, and `unknown` for an unknown
    // handle.
    template <class Work>
    KString use(std::uint32_t handle, char const* unknown, Work&& work) {
        Pointer const stream = find(handle);
        if (!stream) return unknown;
        auto const turn = stream->turn().take();
        return std::forward<Work>(work)(*stream);
    }

    // Removes the stream and returns it; if two threads try, only one gets it.
    Pointer remove(std::uint32_t handle) {
        auto item = streams.hold();
        auto entry = item.value.extract(handle);
        return entry ? std::move(entry.mapped()) : nullptr;
    }

    // The same, and removes the stream: for good, unless the work throws.
    template <class Work>
    KString removeAfter(std::uint32_t handle, char const* unknown, Work&& work) {
        auto entry = streams.hold().value.extract(handle);
        if (!entry) return unknown;
        auto const turn = entry.mapped()->turn().take();
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
