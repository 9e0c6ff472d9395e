#include "inspect/units_ahead.h"

#include <algorithm>
#include <new>
#include <utility>

#include "platform/host_file.h"
#include "platform/round_up.h"

namespace KelvonClip::inspect {

namespace {

// Enough under way to keep a disk busy, and not so many small units that starting them takes longer than reading them.
constexpr std::size_t BYTES_UNDER_WAY = std::size_t{4} << 20, MOST_UNDER_WAY = 32;
constexpr std::size_t BYTES_KEPT_BACK = std::size_t{512} << 10;

}  // namespace

UnitsAhead::UnitsAhead(std::uint32_t size, Start to_read, Use to_use)
    : start(std::move(to_read)), use(std::move(to_use)),
      stride(platform::roundUp<std::size_t>(size, platform::DIRECT_ALIGNMENT)) {}

UnitsAhead::~UnitsAhead() {
    for (; under_way > 0; --under_way, oldest = (oldest + 1) % slots.size())
        slots[oldest].done.wait();
}

void UnitsAhead::push(std::uint64_t unit) {
    if (!memory) {
        std::size_t const count = std::clamp<std::size_t>(BYTES_UNDER_WAY / stride, 2, MOST_UNDER_WAY);
        slots = std::vector<Slot>(count);
        memory.reset(allocateUnitMemory(count * stride));
    }
    if (under_way == slots.size()) useOldest();
    std::size_t const index = (oldest + under_way) % slots.size();
    Slot& slot = slots[index];
    slot.unit = unit;
    slot.error = {};
    slot.out_of_memory = false;
    auto done = CIO::makeCompletion<CIO::CIOSyncHelper>(slot.done, slot.error, slot.out_of_memory);
    // Under way even if `start` throws: from here on the completion object is kept alive by requests alone, and is
    // complete when those of them are that have been started.
    ++under_way;
    start(unit, bytesOf(index), std::move(done));
    // A host may keep requests back until the thread waits: it begins with these while earlier units are used.
    kept_back += stride;
    if (kept_back < BYTES_KEPT_BACK) return;
    kept_back = 0;
    KSemaphore(0).wait(1, 0);
}

void UnitsAhead::finish() {
    while (under_way > 0)
        useOldest();
}

void UnitsAhead::useOldest() {
    std::size_t const index = oldest;
    Slot& slot = slots[index];
    slot.done.wait();
    oldest = (oldest + 1) % slots.size();
    --under_way;
    if (slot.out_of_memory) throw std::bad_alloc();
    use(slot.unit, bytesOf(index), slot.error);
}

}  // namespace KelvonClip::inspect
