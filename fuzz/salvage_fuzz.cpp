// The salvage of damaged recordings, into a copy and in place.
#include "recover/salvage.h"

#include <cstddef>
#include <cstdint>
#include <memory>

#include "inspect/check.h"
#include "patched_clip.h"
#include "require.h"

using namespace KelvonClip;
using fuzz::require;

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    auto const clip = fuzz::patchedClip(data, size);
    recover::SalvageOptions const options{size % 2 == 1, {.slots = 10000}};
    auto const copy = std::make_shared<test::MemoryFile>();
    recover::SalvageReport const report = recover::salvageToCopy(clip, "memory", copy, options);
    if (report.error.empty()) {
        inspect::Report const checked = inspect::check(copy, "memory", {inspect::Level::structure, {}});
        require(checked.tracks.size() == report.tracks.size(), "the copy has the same tracks");
        for (std::size_t track = 0; track < checked.tracks.size(); ++track)
            require(checked.tracks[track].length_units == report.tracks[track].length_after, "and the stated lengths");
        require(checked.findings.number(inspect::FindingKind::record_overlap) == 0, "and a sound map");
    }
    recover::SalvageReport const again = recover::salvageInPlace(clip, "memory", options);
    if (!again.error.empty()) return 0;
    inspect::Report const placed = inspect::check(clip, "memory", {inspect::Level::structure, {}});
    for (std::size_t track = 0; track < placed.tracks.size(); ++track)
        require(placed.tracks[track].length_units >= again.tracks[track].length_after, "in place they are as long");
    return 0;
}
