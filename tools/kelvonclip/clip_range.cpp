#include "clip_range.h"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <span>

#include <fmt/format.h>

#include "failure.h"
#include "labels.h"
#include "unit_stream.h"
#include "vfile/aligned_buffer.h"

namespace tool {

using namespace KelvonClip;

namespace {

bool timecodeIsInTrack(MetaObject const& header) {
    return header.timecode_track && !header.striped && !header.tc0_striped;
}

std::optional<std::uint64_t> timecodeTrack(ClipView const& clip) {
    for (std::size_t number = 0; number < clip.tracks().size(); ++number) {
        TrackView const& view = clip.tracks()[number];
        if (view.format.category == TrackCategory::timecode && view.track) return number;
    }
    return std::nullopt;
}

KTimecode timecodeOfUnit(ClipView const& clip, std::uint64_t track, std::uint32_t unit) {
    TrackView const& view = clip.tracks()[static_cast<std::size_t>(track)];
    AlignedBuffer bytes(view.format.stored_unit_size);
    if (view.track->lengthInUnits() <= unit || !view.track->readUnit(unit, bytes.data()).empty()) return {};
    return KTimecode::from_tc64(clip.header().frequency, bytes.data());
}

KTimecode plus(KTimecode const& timecode, std::uint32_t fields) {
    std::uint64_t const day = std::max(timecode.get_fields_per_day(), 1u);
    auto const sum = static_cast<unsigned>((timecode.get_nfields() + std::uint64_t{fields}) % day);
    return {timecode.get_frequency(), timecode.is_df() ? DropframeFlag::df : DropframeFlag::ndf, sum};
}

struct Found {};

// The first field with this timecode. Where a recording has no break it is as many fields from the beginning as the
// timecode is from the first one.
std::optional<std::uint64_t> fieldInTrack(ClipView const& clip, std::uint64_t track, KTimecode const& wanted,
                                          std::uint64_t expected) {
    TrackView const& view = clip.tracks()[static_cast<std::size_t>(track)];
    std::uint32_t const fields = view.format.fields_per_unit, units = view.track->lengthInUnits();
    if (expected / fields < units) {
        KTimecode const there = timecodeOfUnit(clip, track, static_cast<std::uint32_t>(expected / fields));
        if (there.is_defined() && there.get_nfields() == wanted.get_nfields()) return expected;
    }
    // A track has room for a day, whatever a damaged one claims.
    std::uint32_t const day = std::min(units, wanted.get_fields_per_day());
    std::optional<std::uint64_t> found;
    try {
        streamUnits(clip, track, 0, day, [&](std::uint32_t unit, std::span<std::byte const> bytes) {
            stopIfInterrupted();
            KTimecode const there = KTimecode::from_tc64(clip.header().frequency, bytes.data());
            if (!there.is_defined() || there.get_nfields() != wanted.get_nfields()) return;
            found = std::uint64_t{unit} * fields;
            throw Found();
        });
    } catch (Found const&) {
        return found;
    }
    return std::nullopt;
}

// The field of the clip with this label; as many as there are for the one behind the last.
std::uint64_t fieldAt(ClipView const& clip, std::string const& label) {
    KTimecode const first = firstTimecode(clip);
    if (!first.is_defined()) throw usage(fmt::format("{}: the clip has no timecode; name units of a --track", label));
    KTimecode const wanted = parseTimecode(label, clip.header().frequency, first.is_df());
    std::uint64_t const day = std::max(first.get_fields_per_day(), 1u), length = clip.lengthInFields();
    std::uint64_t const field = (wanted.get_nfields() + day - first.get_nfields() % day) % day;
    if (timecodeIsInTrack(clip.header())) {
        auto const found = fieldInTrack(clip, *timecodeTrack(clip), wanted, field);
        if (found) return *found;
    }
    if (field > length || (field < length && timecodeIsInTrack(clip.header())))
        throw usage(fmt::format("{}: the clip has no such timecode; it begins at {}", label, smpteLabel(first)));
    return field;
}

bool isNumber(std::string const& place) {
    return std::ranges::all_of(place, [](char c) { return c >= '0' && c <= '9'; });
}

std::uint32_t unitAt(std::string const& place, std::uint32_t units) {
    Arguments argument;
    argument.add("the number of a unit", place);
    return static_cast<std::uint32_t>(*argument.number("the number of a unit", units));
}

}  // namespace

KTimecode firstTimecode(ClipView const& clip) {
    MetaObject const& header = clip.header();
    if (header.child_clip || !header.timecode_valid) return {};
    if (!timecodeIsInTrack(header))
        return {header.frequency, header.drop_frame ? DropframeFlag::df : DropframeFlag::ndf, header.timecode};
    auto const track = timecodeTrack(clip);
    return track ? timecodeOfUnit(clip, *track, 0) : KTimecode();
}

UnitRange unitRange(ClipView const& clip, std::uint64_t track, std::string const& from, std::string const& to) {
    TrackView const& view = clip.readable(track);
    std::uint32_t const units = view.track->lengthInUnits(), fields = std::max(view.format.fields_per_unit, 1u);
    auto const place = [&](std::string const& text, std::uint32_t otherwise, std::uint32_t round_up) -> std::uint32_t {
        if (text.empty()) return otherwise;
        if (isNumber(text)) return unitAt(text, units);
        // A track may be shorter than the clip.
        return static_cast<std::uint32_t>(std::min<std::uint64_t>((fieldAt(clip, text) + round_up) / fields, units));
    };
    UnitRange const range{place(from, 0, 0), place(to, units, fields - 1)};
    if (range.from > range.to) throw usage(fmt::format("{} is behind {}", from, to));
    return range;
}

TrackTimecodes::TrackTimecodes(ClipView const& clip, std::uint64_t track) : frequency(clip.header().frequency) {
    if (clip.header().tc0_striped) first = timecodeOfUnit(clip, track, 0);
}

KTimecode TrackTimecodes::of(std::uint32_t unit, std::byte const* bytes) const {
    return first.is_defined() ? plus(first, unit) : KTimecode::from_tc64(frequency, bytes);
}

}  // namespace tool
