// The checker with damaged clips.
#include "inspect/check.h"

#include <cstddef>
#include <cstdint>

#include "patched_clip.h"
#include "require.h"

using namespace KelvonClip;
using fuzz::require;

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    auto const clip = fuzz::patchedClip(data, size);
    std::uint64_t const before = clip->realSize();
    inspect::CheckOptions const options{inspect::Level::units, {.findings = 50}};
    inspect::Report const report = inspect::check(clip, "memory", options);
    require(report.findings.list().size() <= 50, "no more findings than were asked for");
    require(report.findings.number() >= report.findings.list().size(), "every finding is counted");
    for (inspect::CheckedTrack const& track : report.tracks)
        require(track.stored_units <= track.length_units, "no more units stored than there are");
    for (inspect::Finding const& finding : report.findings.list())
        require(!finding.track || *finding.track < report.tracks.size(), "a track of the clip");
    require(clip->realSize() == before, "nothing is written");
    return 0;
}
