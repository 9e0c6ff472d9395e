// The map of a sparse file: which logical ranges are stored, and where in the host.
//
// Recordings make an extent for every unit of every track, tens of millions in a long one, so regular neighbours are
// kept as one entry: a Run stands for `count` extents of one length at fixed distances on both sides. Tracks take turns
// in the log but have logical areas of their own, so a run is looked for beside the new extent in logical order, not
// beside the one inserted last.
//
// Invariants
//   * Extents never overlap and are never empty; no range passes 2^64.
//   * Runs never interleave: what lies in a gap of a run splits it.
//   * Pages hold runs in logical order. A page's key is the start of its first run; the first page's key is 0.
// Threads: none of its own; the owner locks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

namespace KelvonClip {

// A stored range. Units: bytes.
struct Extent {
    std::uint64_t start, length, host;
    friend bool operator==(Extent const&, Extent const&) = default;
};

class ExtentMap {
  public:
    // False, with nothing changed, for an extent that is empty, passes 2^64 on either side or overlaps another.
    bool insert(Extent const& extent);

    // Lengthens the extent that begins at `start`; false, with nothing changed, when there is none, or when the longer one
    // would overlap or pass 2^64.
    bool extend(std::uint64_t start, std::uint64_t by);

    // The extent that contains `position`, else the first one after it.
    std::optional<Extent> atOrAfter(std::uint64_t position) const;

    // The extent that begins exactly at `start`.
    std::optional<Extent> beginningAt(std::uint64_t start) const;

    // How many bytes from `position` on are stored without a gap.
    std::uint64_t contiguousFrom(std::uint64_t position) const;

    std::uint64_t count() const { return extents; }
    std::uint64_t memoryBytes() const;

  private:
    struct Run {
        std::uint64_t start, length, host;  // of the first extent
        std::uint64_t count;
        // From one extent to the next, unless there is only one. The host distance may be negative: it wraps.
        std::uint64_t start_distance, host_distance;

        Extent at(std::uint64_t index) const {
            return {start + index * start_distance, length, host + index * host_distance};
        }
        Extent last() const { return at(count - 1); }
        // The last extent that begins at or before `position`, which is not before the run.
        std::uint64_t indexOf(std::uint64_t position) const;
        bool append(Extent const& extent);
        Run part(std::uint64_t from, std::uint64_t how_many) const;
    };
    using Page = std::vector<Run>;
    using Pages = std::map<std::uint64_t, Page>;

    // Where a position falls: in `page`, after `before` runs that begin at or before it.
    struct Spot {
        Pages::iterator page;
        std::size_t before;
    };
    struct ConstSpot {
        Pages::const_iterator page;
        std::size_t before;
    };
    static std::size_t runsUpTo(Page const& page, std::uint64_t position);
    Spot spotOf(std::uint64_t position);
    ConstSpot spotOf(std::uint64_t position) const;
    std::optional<Run> runAfter(ConstSpot spot) const;
    void splitIfFull(Pages::iterator page, std::size_t last_inserted);

    Pages pages{{0, {}}};
    std::uint64_t extents = 0;
};

}  // namespace KelvonClip
