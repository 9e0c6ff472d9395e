// What one walk may use at most. Headers of hostile files claim anything; memory and time follow what is really there,
// and end at these limits.
#pragma once

#include <cstddef>
#include <cstdint>

namespace KelvonClip::inspect {

struct Limits {
    std::uint64_t map_blocks = std::uint64_t{4} * 8188;  // read in all sparse files together
    std::uint64_t map_bytes = 512u << 20;                // memory for all maps together
    std::uint64_t bytes_read = UINT64_MAX;               // of units
    std::size_t findings = 1000;                         // kept in the list
    std::uint64_t slots = 4u << 20;                      // units of one salvage
};

// Threads: one user at a time.
class Budget {
  public:
    explicit Budget(Limits const& allowed) : limits(allowed) {}

    bool takeMapBlock() { return take(blocks, 1, limits.map_blocks); }
    bool takeBytes(std::uint64_t count) { return take(bytes, count, limits.bytes_read); }
    // Memory of the maps that are complete, and of one that is growing.
    bool mapFits(std::uint64_t growing) const { return growing <= limits.map_bytes - map_memory; }
    void keepMap(std::uint64_t memory) { map_memory += mapFits(memory) ? memory : limits.map_bytes - map_memory; }

    bool exceeded() const { return was_exceeded; }
    void setExceeded() { was_exceeded = true; }

  private:
    bool take(std::uint64_t& used, std::uint64_t more, std::uint64_t limit) {
        if (more > limit - used) {
            was_exceeded = true;
            return false;
        }
        used += more;
        return true;
    }

    Limits limits;
    std::uint64_t blocks = 0, bytes = 0, map_memory = 0;
    bool was_exceeded = false;
};

}  // namespace KelvonClip::inspect
