#include "timecode_overview.h"

namespace tool {

using namespace KelvonClip;

// The checker's rule (inspect/check.cpp), with the labels that belong to it.
void TimecodeOverview::look(std::uint64_t unit, inspect::UnitBytes bytes) {
    if (unit != next_unit) expected.reset();
    next_unit = unit + 1;
    auto const count = inspect::timecodeOf(frequency, bytes);
    KTimecode const now = count ? KTimecode::from_tc64(frequency, bytes.data()) : KTimecode();
    if (expected && count != expected) {
        ++break_count;
        if (kept.size() < MOST_BREAKS) {
            DropframeFlag const flag = before.is_df() ? DropframeFlag::df : DropframeFlag::ndf;
            kept.push_back({unit, KTimecode(frequency, flag, *expected), now});
        }
    }
    expected = count ? std::optional(inspect::nextTimecode(frequency, bytes, *count)) : std::nullopt;
    before = now;
    if (!count) return;
    if (!first_seen.is_defined()) first_seen = now;
    last_seen = now;
}

}  // namespace tool
