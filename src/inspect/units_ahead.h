// Reads units of a track ahead of their use, several at once, so that a disk is kept busy.
//
// Threads: one. The requests complete in its own waits.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "clip/unit_memory.h"
#include "foundation/ksemaphore.h"
#include "foundation/kstring.h"
#include "vfile/vfileobject.h"

namespace KelvonClip::inspect {

class UnitsAhead {
  public:
    // Starts to read a unit into a slot of the size given below.
    using Start = std::function<void(std::uint64_t unit, std::byte* into, std::shared_ptr<CIO::CIOObject> done)>;
    // Called for every unit, in the order of `push`. `error`: empty if the unit was read.
    using Use = std::function<void(std::uint64_t unit, std::byte const* bytes, KString const& error)>;

    // `size`: bytes that a read fills. Memory is taken at the first `push`, of a kind that is read into without a copy.
    UnitsAhead(std::uint32_t size, Start to_read, Use to_use);
    UnitsAhead(UnitsAhead const&) = delete;
    UnitsAhead& operator=(UnitsAhead const&) = delete;
    // Waits for what is being read, without using it.
    ~UnitsAhead();

    // Starts to read a unit. Uses earlier ones first if as many are under way as there is room for.
    void push(std::uint64_t unit);
    // Uses all that is under way.
    void finish();

  private:
    struct Slot {
        std::uint64_t unit = 0;
        KSemaphore done{0};
        KString error;
        bool out_of_memory = false;
    };
    struct Free {
        void operator()(std::byte* units) const { freeUnitMemory(units); }
    };

    void useOldest();
    std::byte* bytesOf(std::size_t slot) const { return memory.get() + slot * stride; }

    Start const start;
    Use const use;
    std::size_t const stride;
    std::unique_ptr<std::byte, Free> memory;
    std::vector<Slot> slots;  // used in turn
    std::size_t oldest = 0, under_way = 0;
    std::size_t kept_back = 0;  // bytes of requests since the last wait for nothing
};

}  // namespace KelvonClip::inspect
