// The ranges of a sparse file that have a place in the host but whose first write has not landed there. Readers see
// zeros in them: the host may still hold what another file left there.
//
// A range is added when its place is allocated, split where writes begin and end, and removed when a write lands. A
// range whose write failed, or that was only reserved, stays; nobody writes it then: it is idle.
//
// Threads: not synchronised; the owner locks.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <utility>

#include "platform/recycled_memory.h"

namespace KelvonClip {

class UnlandedRanges {
    struct Range {
        std::uint64_t end = 0;
        std::uint32_t writers = 0;     // writes that are on their way
        bool holds_old_bytes = false;  // the host may have bytes of another file there
        bool being_cleared = false;
        bool written_to = false;  // a write of it has begun; else it is only reserved
    };
    using Ranges =
        std::map<std::uint64_t, Range, std::less<>, platform::Recycling<std::pair<std::uint64_t const, Range>>>;

  public:
    // Memory for one range, so that `add` needs none.
    using Node = Ranges::node_type;
    static Node makeNode();

    // Adds a range that has just been allocated, so it overlaps no other one. `holds_old_bytes`: the host may hold
    // bytes of another file there.
    void add(Node node, std::uint64_t start, std::uint64_t length, bool holds_old_bytes) noexcept;

    // True if not all of the range has landed. A write of it must then call `begin`, and `landed` or `failed` at its
    // end.
    bool overlap(std::uint64_t start, std::uint64_t length) const;
    // False if a part is being cleared. If it throws, nothing has changed.
    bool begin(std::uint64_t start, std::uint64_t length);
    void landed(std::uint64_t start, std::uint64_t length) noexcept;
    void failed(std::uint64_t start, std::uint64_t length) noexcept;

    // The first part of an unlanded range at or after `position`: its start and end. None: everything there has landed.
    struct Piece {
        std::uint64_t start, end;
    };
    std::optional<Piece> atOrAfter(std::uint64_t position) const;

    // The end of what has landed or may land of [start, start + length): what follows is idle. `start` if all is idle.
    std::uint64_t landedEnd(std::uint64_t start, std::uint64_t length) const;
    // True if a write of a part of it has begun.
    bool wasWritten(std::uint64_t start, std::uint64_t length) const;
    // Removes the range, whose place was given back.
    void forget(std::uint64_t start, std::uint64_t length) noexcept;

    // Idle ranges where the host may have bytes of another file: the next one at or after `position`. Until `cleared`
    // is called for it, writes of it are refused.
    enum class Clear { what_failed, everything };  // ranges whose write failed; reserved ones too
    std::optional<Piece> beginClearing(std::uint64_t position, Clear which);
    void cleared(Piece const& piece, bool successful) noexcept;

  private:
    template <class Work>
    void forEachIn(std::uint64_t start, std::uint64_t length, Work&& work) noexcept;
    Ranges::const_iterator firstEndingAfter(std::uint64_t position) const;
    void splitAt(std::uint64_t position);

    Ranges ranges;  // by start; they do not overlap
};

}  // namespace KelvonClip
