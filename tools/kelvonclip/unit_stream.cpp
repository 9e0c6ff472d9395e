#include "unit_stream.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <utility>

#include "failure.h"
#include "inspect/units_ahead.h"
#include "reason.h"

namespace tool {

void streamUnits(ClipView const& clip, std::uint64_t number, std::uint32_t from, std::uint32_t to,
                 std::function<void(std::uint32_t unit, std::span<std::byte const> bytes)> const& use) {
    if (from >= to) return;
    KelvonClip::Track& track = *clip.readable(number).track;
    KelvonClip::inspect::UnitsAhead ahead(
        track.format().stored_unit_size,
        [&](std::uint64_t unit, std::byte* into, auto done) {
            track.readUnit(static_cast<std::uint32_t>(unit), into, std::move(done));
        },
        [&](std::uint64_t unit, std::byte const* bytes, KelvonClip::KString const& error) {
            if (!error.empty()) throw Failure(FAILED, {clip.path(), number, unit}, reasonText(error));
            use(static_cast<std::uint32_t>(unit), {bytes, track.unitSize()});
        });
    for (std::uint32_t unit = from; unit < to; ++unit)
        ahead.push(unit);
    ahead.finish();
}

}  // namespace tool
