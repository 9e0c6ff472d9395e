// recover: the salvage of a recording that ended without a close.
#include <array>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>
#include <utility>

#include <fmt/format.h>

#include "clip_view.h"
#include "commands.h"
#include "console.h"
#include "failure.h"
#include "findings.h"
#include "json.h"
#include "new_clip_file.h"
#include "output_file.h"
#include "reason.h"
#include "recover/salvage.h"
#include "text.h"

namespace tool {

namespace {

using namespace KelvonClip;

Json tracksJson(recover::SalvageReport const& report) {
    Json tracks = Json::array();
    for (recover::SalvagedTrack const& track : report.tracks)
        tracks.push_back({{"track", tracks.size()},
                          {"format", track.format_name.toUtf8()},
                          {"category", categoryText(track.format.category)},
                          {"units_before", track.length_before},
                          {"units_after", track.length_after},
                          {"certain", track.certain},
                          {"likely", track.likely},
                          {"unknown", track.unknown}});
    return tracks;
}

recover::SalvageReport toCopy(std::shared_ptr<VFileObject> const& clip, std::string const& path,
                              std::string const& copy, bool force, recover::SalvageOptions const& options) {
    NewClipFile target(copy, force);
    recover::SalvageReport report = recover::salvageToCopy(clip, kstring(path), target.file(), options);
    if (!report.error.empty()) throw Failure(FAILED, {path}, reasonText(report.error));
    target.finish();
    return report;
}

int run(Arguments const& arguments, Console& console) {
    std::string const path = arguments.text("CLIP"), copy = arguments.text("OUT");
    bool const dry = arguments.has("--dry-run"), in_place = arguments.has("--in-place");
    bool const force = arguments.has("--force");
    if (in_place && !copy.empty()) throw usage("--in-place has no OUT");
    if (!dry && !in_place && copy.empty()) throw usage("OUT is missing; --dry-run says what would come back");
    if (!copy.empty()) {
        requireFree(copy, force);
        if (isSameFile(path, copy)) throw usage("OUT is the clip itself; --in-place mends a clip where it is");
    }
    recover::SalvageOptions options;
    options.likely = arguments.has("--likely");

    recover::SalvageReport report{{}, inspect::Findings(options.limits.findings), {}, {}};
    if (in_place && !dry) {
        report = recover::salvageInPlace(kstring(path), options);
    } else {
        std::error_code ignored;
        auto const size = std::filesystem::file_size(fsPath(path), ignored);
        Progress progress(console, "recover", ignored ? 0 : size);
        auto const clip = openForReading(path, [&](std::uint64_t bytes) { progress.step(bytes); });
        report = dry ? recover::examine(clip, kstring(path), options) : toCopy(clip, path, copy, force, options);
    }
    if (!report.error.empty()) throw Failure(FAILED, {path}, reasonText(report.error));

    std::uint64_t recovered = 0, left_out = 0;
    for (recover::SalvagedTrack const& track : report.tracks) {
        recovered += track.certain + (options.likely ? track.likely : 0);
        left_out += track.unknown + (options.likely ? 0 : track.likely);
    }
    Json const tracks = tracksJson(report), findings = findingsJson(report.findings);
    if (console.json()) {
        printDocument(console, "recover",
                      {{"path", path},
                       {"output", dry ? Json(nullptr) : Json(in_place ? path : copy)},
                       {"dry_run", dry},
                       {"recovered_units", recovered},
                       {"left_out_units", left_out},
                       {"tracks", tracks},
                       {"findings", findings}});
    } else if (!console.quiet()) {
        console.print(fmt::format("{}: {} units {} back, {} {} left out\n", printable(path), recovered,
                                  dry ? "would come" : "came", left_out, dry ? "would be" : "were"));
        for (Json const& track : tracks)
            console.print(
                fmt::format("  track {}: {}, {} units, {} with what is salvaged ({} certain, {} likely, {} unknown)\n",
                            track["track"].get<std::uint64_t>(), printable(track["format"].get<std::string>()),
                            track["units_before"].get<std::uint64_t>(), track["units_after"].get<std::uint64_t>(),
                            track["certain"].get<std::uint64_t>(), track["likely"].get<std::uint64_t>(),
                            track["unknown"].get<std::uint64_t>()));
        for (Json const& finding : findings)
            console.print("  " + findingLine(finding, console) + "\n");
    }
    if (recovered == 0) return FINE;
    return dry ? UNFINISHED : REPAIRED;
}

constexpr auto OPERANDS = std::to_array<Operand>({
    {"CLIP", "a clip whose recording ended without a close"},
    {"OUT", "the clip to be written", 0, 1},
});
constexpr auto OPTIONS = std::to_array<Option>({
    DRY_RUN,
    {"--likely", "", "", "put in units too of which not everything is proven"},
    {"--in-place", "", "", "mend the clip where it is; nobody else may have it open"},
    FORCE,
});
constexpr auto EXAMPLES = std::to_array<Example>({
    {"kelvonclip recover --dry-run killed.clip", "say what would come back, and write nothing"},
    {"kelvonclip recover killed.clip mended.clip", "write a whole clip with all that is certain"},
});

}  // namespace

Command const RECOVER = {
    "recover",
    "salvage a recording that ended without a close",
    "Finds the units that a killed recording left behind what its map and lengths say, and writes a copy with all that "
    "the clip holds and all that is salvaged. Only units of which track, number and last byte are proven are put in, "
    "unless --likely is given. Ends with 5 if something was salvaged, with 4 if --dry-run says that something would "
    "be, with 0 if there is nothing to salvage.\n\n"
    "Salvage before anything else is written to the clip: new units would lie where the lost ones are.",
    OPERANDS,
    OPTIONS,
    EXAMPLES,
    run,
};

}  // namespace tool
