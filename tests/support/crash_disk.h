// A disk for crash tests: it records all writes and flushes in order, so that a test can construct every state that the
// disk may have after a crash.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <mutex>
#include <random>
#include <utility>
#include <vector>

#include "support/memory_file.h"

namespace KelvonClip::test {

class CrashDisk : public MemoryFile {
  public:
    static constexpr std::uint64_t SECTOR = 512;

    void write(std::uint64_t position, std::uint32_t length, void const* buffer,
               std::shared_ptr<CIO::CIOObject> done) override {
        auto const* from = static_cast<std::byte const*>(buffer);
        note({false, position, {from, from + length}});
        MemoryFile::write(position, length, buffer, std::move(done));
    }
    KString flush() override {
        note({true, 0, {}});
        return {};
    }

    // Starts the recording: what is on the disk now is safe.
    void begin() {
        std::lock_guard hold(mutex);
        safe = bytes(0, realSize());
        events.clear();
    }
    // The number of writes and flushes since then.
    std::size_t eventCount() {
        std::lock_guard hold(mutex);
        return events.size();
    }

    // The disk after a crash following `count` events. `in_order` (killed process): these events and a part of the next
    // one. `any_sectors` (power failure): everything before the last flush, and arbitrary sectors of later writes.
    enum Survivors { in_order, any_sectors };
    std::shared_ptr<MemoryFile> afterCrash(std::size_t count, Survivors survivors, std::mt19937& dice) {
        std::lock_guard hold(mutex);
        auto disk = std::make_shared<MemoryFile>();
        disk->put(0, safe.data(), safe.size());
        std::size_t flushed = 0;
        for (std::size_t n = 0; n < count; ++n)
            if (events[n].is_flush) flushed = n;
        for (std::size_t n = 0; n < count; ++n)
            putSectors(*disk, events[n], n < flushed || survivors == in_order, survivors, dice);
        if (survivors == in_order && count < events.size()) putSectors(*disk, events[count], false, survivors, dice);
        return disk;
    }

  private:
    struct Event {
        bool is_flush;
        std::uint64_t position;
        std::vector<std::byte> bytes;
    };

    void note(Event event) {
        std::lock_guard hold(mutex);
        events.push_back(std::move(event));
    }

    static void putSectors(MemoryFile& disk, Event const& event, bool whole, Survivors survivors, std::mt19937& dice) {
        std::uint64_t const torn_at = dice() % (event.bytes.size() / SECTOR + 1);
        for (std::uint64_t at = 0; at < event.bytes.size(); at += SECTOR) {
            bool const lands = whole || (survivors == in_order ? at / SECTOR < torn_at : dice() % 2 == 0);
            if (lands)
                disk.put(event.position + at, event.bytes.data() + at, std::min(SECTOR, event.bytes.size() - at));
        }
    }

    std::mutex mutex;
    std::vector<std::byte> safe;
    std::vector<Event> events;
};

}  // namespace KelvonClip::test
