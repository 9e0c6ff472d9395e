#include "unit_stream.h"

#include <algorithm>
#include <array>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <span>
#include <thread>

#include "vfile/aligned_buffer.h"

namespace tool {

using KelvonClip::AlignedBuffer;

namespace {

// Units that are read or about to be. A slot holds one batch of neighbouring units; slots are used in turn.
class ReadAhead {
  public:
    ReadAhead(ClipView const& read, std::uint64_t track_number, std::uint32_t first, std::uint32_t last)
        : clip(read), track(track_number), from(first), to(last) {
        constexpr std::uint32_t BATCH_BYTES = 1u << 20;
        TrackView const& view = clip.readable(track);
        stride = view.format.stored_unit_size;
        batch = std::max(1u, BATCH_BYTES / stride);
        for (Slot& slot : slots)
            slot.units = std::make_unique<AlignedBuffer>(std::size_t{batch} * stride);
        for (auto& thread : threads)
            thread = std::thread([this] { run(); });
    }
    ReadAhead(ReadAhead const&) = delete;
    ReadAhead& operator=(ReadAhead const&) = delete;
    ~ReadAhead() {
        {
            std::lock_guard const guard(lock);
            ending = true;
        }
        changed.notify_all();
        for (auto& thread : threads)
            thread.join();
    }

    std::uint32_t batches() const { return (to - from - 1) / batch + 1; }
    std::uint32_t firstOf(std::uint32_t number) const { return from + number * batch; }
    std::uint32_t countOf(std::uint32_t number) const { return std::min(batch, to - firstOf(number)); }
    std::uint32_t unitStride() const { return stride; }

    // Waits for a batch; its units lie at multiples of the stride. Called for 0, 1, 2 ...
    std::byte const* wait(std::uint32_t number) {
        std::unique_lock guard(lock);
        Slot& slot = slots[number % SLOTS];
        changed.wait(guard, [&] { return slot.ready; });
        if (slot.fault) std::rethrow_exception(slot.fault);
        return slot.units->data();
    }
    void release(std::uint32_t number) {
        {
            std::lock_guard const guard(lock);
            slots[number % SLOTS].ready = false;
            released = number + 1;
        }
        changed.notify_all();
    }

  private:
    static constexpr std::uint32_t SLOTS = 6;
    struct Slot {
        std::unique_ptr<AlignedBuffer> units;
        bool ready = false;
        std::exception_ptr fault;
    };

    void run() {
        std::unique_lock guard(lock);
        while (true) {
            changed.wait(guard, [&] { return ending || next >= batches() || next < released + SLOTS; });
            if (ending || next >= batches()) return;
            std::uint32_t const mine = next++;
            Slot& slot = slots[mine % SLOTS];
            guard.unlock();
            std::exception_ptr fault;
            try {
                for (std::uint32_t i = 0; i < countOf(mine); ++i)
                    clip.readUnit(track, firstOf(mine) + i, slot.units->data() + std::size_t{i} * stride);
            } catch (...) {
                fault = std::current_exception();
            }
            guard.lock();
            slot.fault = fault;
            slot.ready = true;
            changed.notify_all();
        }
    }

    ClipView const& clip;
    std::uint64_t const track;
    std::uint32_t const from, to;
    std::uint32_t stride = 0, batch = 1;
    std::mutex lock;
    std::condition_variable changed;
    std::array<Slot, SLOTS> slots;
    std::uint32_t next = 0, released = 0;
    bool ending = false;
    std::array<std::thread, 2> threads;
};

}  // namespace

void streamUnits(ClipView const& clip, std::uint64_t track, std::uint32_t from, std::uint32_t to,
                 std::function<void(std::uint32_t unit, std::span<std::byte const> bytes)> const& use) {
    if (from >= to) return;
    std::size_t const size = clip.readable(track).format.unit_size;
    ReadAhead ahead(clip, track, from, to);
    for (std::uint32_t number = 0; number < ahead.batches(); ++number) {
        std::byte const* const units = ahead.wait(number);
        for (std::uint32_t i = 0; i < ahead.countOf(number); ++i)
            use(ahead.firstOf(number) + i, {units + std::size_t{i} * ahead.unitStride(), size});
        ahead.release(number);
    }
}

}  // namespace tool
