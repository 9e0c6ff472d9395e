// What a clip's tracks hold, in the order in which it is played: moment by moment, and in each moment track by track,
// what is stored of the units that begin in it. Where nothing is stored there is nothing: time and memory follow what
// is really in the file, not what lengths claim.
//
// Threads: one user at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "clip_view.h"
#include "inspect/layer.h"

namespace tool {

struct Played {
    enum class Part { header, units };

    std::size_t track;
    // `header`: of the track's grow container, once for each track and before its units. It has no bytes here.
    Part part;
    std::uint64_t position;  // byte of the track
    std::uint32_t length;    // bytes; whole sectors
};

class PlayOrder {
  public:
    // `clip`: all tracks can be read. `moment`: how many fields count as one moment; at least 1. Units that trims hide
    // come too, before and behind the others. A piece has `most` bytes at most, a number of sectors.
    PlayOrder(ClipView const& clip, std::uint32_t moment, std::uint32_t most);

    // The next piece; nothing at the end.
    std::optional<Played> next();

    // Bytes of a track's whole units.
    static std::uint64_t bytesOf(TrackView const& track);

  private:
    struct Cursor {
        KelvonClip::inspect::Layer const* units;
        std::uint64_t unit_size, fields_per_unit, end;
        std::uint64_t hidden;        // fields that trims hide at the start
        std::uint64_t position = 0;  // of the next stored sector; `end` if there is none
        bool header_is_due = true;
    };
    std::int64_t momentOf(Cursor const& cursor) const;
    std::uint64_t endOfMoment(Cursor const& cursor) const;
    static std::uint64_t storedFrom(Cursor const& cursor, std::uint64_t position);
    bool beginMoment();
    std::optional<Played> take(std::size_t track);

    std::int64_t const fields;
    std::uint32_t const longest;
    std::vector<Cursor> cursors;
    std::int64_t moment = 0;
    std::size_t track;  // whose turn it is in the moment; behind the last one: the moment is over
};

}  // namespace tool
