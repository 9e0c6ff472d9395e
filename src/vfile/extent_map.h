// The map of a sparse file: which logical ranges are stored, and where in the host.
//
// A recording makes an extent for every unit of every track: tens of millions in a long recording. So regular
// neighbours are stored as one entry: a Run is `count` extents of equal length at fixed distances, both logically and
// in the host. Tracks alternate in the log but have separate logical areas. So a new extent is merged with its logical
// neighbour, not with the extent that was inserted last.
//
// Invariants
//   * Extents never overlap and are never empty; no range exceeds 2^64.
//   * Runs never interleave: an extent in a gap of a run splits the run.
//   * Pages hold runs in logical order. The key of a page is the start of its first run; the key of the first page is
//     0.
// Threads: not synchronised; the owner locks.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <utility>
#include <vector>

namespace KelvonClip {

// A stored range. Units: bytes.
struct Extent {
    std::uint64_t start, length, host;
    friend bool operator==(Extent const&, Extent const&) = default;
};

class ExtentMap {
  public:
    // False, with nothing changed, if the extent is empty, exceeds 2^64 on either side or overlaps another one.
    bool insert(Extent const& extent);

    // Extends the extent that starts at `start`; false, with nothing changed, if there is none or the longer one would
    // overlap another one or exceed 2^64.
    bool extend(std::uint64_t start, std::uint64_t by);

    // The extent that contains `position`, or else the next one.
    std::optional<Extent> atOrAfter(std::uint64_t position) const;

    // The extent that starts exactly at `start`.
    std::optional<Extent> beginningAt(std::uint64_t start) const;

    // The number of bytes from `position` on that are stored without a gap.
    std::uint64_t contiguousFrom(std::uint64_t position) const;

    std::uint64_t count() const { return extents; }
    std::uint64_t memoryBytes() const;

  private:
    struct Run {
        std::uint64_t start, length, host;  // of the first extent
        std::uint64_t count;
        // From one extent to the next; not used if there is only one. The host distance may be negative (it wraps).
        std::uint64_t start_distance, host_distance;

        Extent at(std::uint64_t index) const {
            return {start + index * start_distance, length, host + index * host_distance};
        }
        Extent last() const { return at(count - 1); }
        // The last extent that starts at or before `position`, which is not before the start of the run.
        std::uint64_t indexOf(std::uint64_t position) const;
        bool append(Extent const& extent);
        Run part(std::uint64_t from, std::uint64_t how_many) const;
    };
    using Page = std::vector<Run>;
    using Pages = std::map<std::uint64_t, Page>;

    // The place of a position: in `page`, after the `before` runs that start at or before it.
    struct Spot {
        Pages::iterator page;
        std::size_t before;
    };
    struct ConstSpot {
        Pages::const_iterator page;
        std::size_t before;
    };
    // The runs that were appended to last, one for each track of a recording: the next extent mostly continues one.
    // Pointers into the pages; forgotten whenever runs move.
    struct RecentRun {
        Run* run = nullptr;
        std::uint64_t next_start = 0, next_host = 0;  // of the extent that would continue it
        std::uint64_t limit = 0;                      // where the next run starts
    };
    class RecentRuns {
      public:
        RecentRuns() = default;
        RecentRuns(RecentRuns const&) {}  // a copy has pages of its own
        RecentRuns(RecentRuns&& other) noexcept : runs(std::exchange(other.runs, {})) {}
        RecentRuns& operator=(RecentRuns const& /*other*/) {
            forget();
            return *this;
        }
        RecentRuns& operator=(RecentRuns&& other) noexcept {
            runs = std::exchange(other.runs, {});
            return *this;
        }

        // Appends the extent to the run that it continues, if there is one.
        bool append(Extent const& extent);
        void add(Run& run, std::uint64_t limit);
        void forget() { runs = {}; }

      private:
        static constexpr std::size_t COUNT = 8;
        std::array<RecentRun, COUNT> runs{};
        std::size_t turn = 0;    // where the next extent is expected
        std::size_t oldest = 0;  // is replaced next
    };

    bool insertAnywhere(Extent const& extent);
    static std::size_t runsUpTo(Page const& page, std::uint64_t position);
    Spot spotOf(std::uint64_t position);
    ConstSpot spotOf(std::uint64_t position) const;
    std::optional<Extent> atOrAfter(ConstSpot spot, std::uint64_t position) const;
    Run const* runAfter(ConstSpot spot) const;
    void splitIfFull(Pages::iterator page, std::size_t last_inserted);

    Pages pages{{0, {}}};
    RecentRuns recent_runs;
    std::uint64_t extents = 0;
};

}  // namespace KelvonClip
