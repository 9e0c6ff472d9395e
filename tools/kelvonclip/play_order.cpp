#include "play_order.h"

#include <algorithm>

#include "clip/clip_header.h"
#include "vfile/sectors.h"

namespace tool {

using namespace KelvonClip;

namespace {

// Fields that trims hide at the start of a track (docs/format.md, "Units of a track").
std::uint64_t hiddenFields(TrackView const& view, MetaObject const& header) {
    std::uint64_t const units = PlayOrder::bytesOf(view) / view.format.stored_unit_size;
    if (units < 2) return 0;
    return std::min<std::uint64_t>(header.trim_start / view.format.fields_per_unit, units - 2) *
           view.format.fields_per_unit;
}

std::int64_t dividedDown(std::int64_t number, std::int64_t by) { return number / by - (number % by < 0 ? 1 : 0); }

}  // namespace

std::uint64_t PlayOrder::bytesOf(TrackView const& track) {
    return track.layer->length / track.format.stored_unit_size * track.format.stored_unit_size;
}

PlayOrder::PlayOrder(ClipView const& clip, std::uint32_t moment_fields, std::uint32_t most)
    : fields(moment_fields), longest(most) {
    for (TrackView const& view : clip.tracks()) {
        Cursor cursor{view.layer.get(), view.format.stored_unit_size, view.format.fields_per_unit, bytesOf(view),
                      hiddenFields(view, clip.header())};
        cursor.position = storedFrom(cursor, 0);
        cursors.push_back(cursor);
    }
    track = cursors.size();
}

// The moment of what comes next. Negative where trims hide it.
std::int64_t PlayOrder::momentOf(Cursor const& cursor) const {
    std::uint64_t const unit = cursor.header_is_due ? 0 : cursor.position / cursor.unit_size;
    return dividedDown(
        static_cast<std::int64_t>(unit * cursor.fields_per_unit) - static_cast<std::int64_t>(cursor.hidden), fields);
}

// The byte of the first unit that begins after this moment.
std::uint64_t PlayOrder::endOfMoment(Cursor const& cursor) const {
    std::int64_t const field = (moment + 1) * fields + static_cast<std::int64_t>(cursor.hidden);
    if (field <= 0) return 0;
    std::uint64_t const unit =
        (static_cast<std::uint64_t>(field) + cursor.fields_per_unit - 1) / cursor.fields_per_unit;
    return std::min(unit, cursor.end / cursor.unit_size) * cursor.unit_size;
}

// The first sector from `position` on of which something is stored.
std::uint64_t PlayOrder::storedFrom(Cursor const& cursor, std::uint64_t position) {
    while (position < cursor.end) {
        auto const reach = cursor.units->reach(position, cursor.end - position);
        if (reach.stored) return position / SECTOR_SIZE * SECTOR_SIZE;
        position += std::max<std::uint64_t>(reach.length, 1);
    }
    return cursor.end;
}

bool PlayOrder::beginMoment() {
    bool begun = false;
    for (Cursor const& cursor : cursors) {
        if (!cursor.header_is_due && cursor.position >= cursor.end) continue;
        moment = begun ? std::min(moment, momentOf(cursor)) : momentOf(cursor);
        begun = true;
    }
    track = 0;
    return begun;
}

std::optional<Played> PlayOrder::take(std::size_t number) {
    Cursor& cursor = cursors[number];
    if (cursor.header_is_due) {
        if (momentOf(cursor) != moment) return std::nullopt;
        cursor.header_is_due = false;
        return Played{number, Played::Part::header, 0, 0};
    }
    std::uint64_t const from = cursor.position, end = std::min(endOfMoment(cursor), from + longest);
    if (from >= end) return std::nullopt;
    std::uint64_t to = from;
    while (to < end) {
        auto const reach = cursor.units->reach(to, end - to);
        // The first sector may begin with bytes that are not stored.
        if (!reach.stored && to != from) break;
        to += std::max<std::uint64_t>(reach.length, 1);
    }
    to = std::min((to + SECTOR_SIZE - 1) / SECTOR_SIZE * SECTOR_SIZE, end);
    cursor.position = storedFrom(cursor, to);
    return Played{number, Played::Part::units, from, static_cast<std::uint32_t>(to - from)};
}

std::optional<Played> PlayOrder::next() {
    while (true) {
        if (track >= cursors.size() && !beginMoment()) return std::nullopt;
        for (; track < cursors.size(); ++track)
            if (auto piece = take(track)) return piece;
    }
}

}  // namespace tool
