#include "audio/gain_tables.h"

#include <algorithm>
#include <cmath>

#include "foundation/kassert.h"

namespace KelvonClip::hemlock {

namespace {

std::int32_t scaled(double val) {
    kassert(0 <= val, "seq_read", __LINE__, "0 <= val");
    kassert(val <= 1.0, "seq_read", __LINE__, "val <= 1.0");
    return std::clamp(static_cast<std::int32_t>(std::lround(FULL_GAIN * val)), 0, FULL_GAIN);
}

Gains build() {
    Gains tables{};
    for (std::uint32_t i = 0; i < FADE_SAMPLES; ++i) {
        tables.out[i] = scaled((FADE_SAMPLES - 1 - i) / static_cast<double>(FADE_SAMPLES));
        tables.in[FADE_SAMPLES - 1 - i] = tables.out[i];
    }
    return tables;
}

}  // namespace

Gains const& gains() {
    static Gains const tables = build();
    return tables;
}

}  // namespace KelvonClip::hemlock
