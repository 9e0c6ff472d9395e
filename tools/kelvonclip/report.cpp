// report: a page that shows a clip to a person: what it is, how it lies on the disk, its sound, its timecode and what
// is wrong with it.
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "clip_view.h"
#include "commands.h"
#include "console.h"
#include "failure.h"
#include "findings.h"
#include "inspect/check.h"
#include "json.h"
#include "output_file.h"
#include "report_page.h"
#include "text.h"

namespace tool {

namespace {

using namespace KelvonClip;

// Where what is seen of the units is put together. Tracks whose units are not read stay empty.
std::vector<TrackOverview> overviewsOf(ClipView const& clip, inspect::Level level) {
    std::vector<TrackOverview> overviews(clip.tracks().size());
    if (level == inspect::Level::structure) return overviews;
    std::size_t room = MOST_WAVEFORMS;
    VideoFrequency const frequency = clip.header().frequency;
    for (std::size_t number = 0; number < overviews.size(); ++number) {
        TrackView const& view = clip.tracks()[number];
        if (!view.layer || !view.format.valid) continue;
        std::uint64_t const units = view.layer->length / view.format.stored_unit_size;
        if (view.format.category == TrackCategory::timecode) overviews[number].timecode.emplace(frequency);
        if (view.format.category != TrackCategory::audio || units == 0 || view.format.subchannel_count > room) continue;
        room -= view.format.subchannel_count;
        overviews[number].sound.emplace(view.format, frequency, units);
    }
    return overviews;
}

inspect::Report lookAt(ClipView const& clip, inspect::Level level, std::vector<TrackOverview>& overviews,
                       Console& console) {
    Progress progress(console, "report", clip.fileBytes());
    auto const file = openForReading(clip.path(), [&](std::uint64_t bytes) { progress.step(bytes); });
    inspect::CheckOptions options{level};
    options.on_unit = [&](std::uint32_t track, std::uint64_t unit, inspect::UnitBytes bytes) {
        if (track >= overviews.size()) return;  // the file has changed since
        TrackOverview& overview = overviews[track];
        if (overview.sound) overview.sound->look(unit, bytes);
        if (overview.timecode) overview.timecode->look(unit, bytes);
    };
    inspect::Report report = inspect::check(file, kstring(clip.path()), options);
    for (TrackOverview& overview : overviews)
        if (overview.sound) overview.sound->finish();
    return report;
}

Json countsJson(inspect::Findings const& findings) {
    std::array<std::uint64_t, 3> counts{};
    for (std::size_t kind = 0; kind < inspect::FINDING_KINDS; ++kind) {
        auto const of_kind = static_cast<inspect::FindingKind>(kind);
        counts.at(static_cast<std::size_t>(inspect::kindOf(of_kind).severity)) += findings.number(of_kind);
    }
    return {{"note", counts[0]}, {"damage", counts[1]}, {"loss", counts[2]}};
}

std::uint64_t secondsSince1970() {
    auto const now = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::seconds>(now).count());
}

int run(Arguments const& arguments, Console& console) {
    std::string const path = arguments.text("CLIP"), output = arguments.text("--output");
    bool const dry = arguments.has("--dry-run");
    CheckLevel const& level = checkLevel(arguments);
    if (output.empty() && !dry) throw usage("--output is missing: it names the page; - is standard output");
    if (output == "-" && console.json() && !dry) throw usage("--json and --output - both want standard output");
    std::error_code ignored;
    if (output != "-" && std::filesystem::equivalent(fsPath(path), fsPath(output), ignored))
        throw usage("the page would take the place of the clip");

    std::optional<OutputFile> file;
    if (!dry) file.emplace(output, arguments.has("--force"), console);
    ClipView const clip(path);
    std::vector<TrackOverview> overviews = overviewsOf(clip, level.level);
    inspect::Report const checked = lookAt(clip, level.level, overviews, console);
    std::string const page = reportPage({clip, level, checked, overviews, secondsSince1970()});
    if (file) {
        file->write(std::as_bytes(std::span(page)));
        file->finish();
    }

    Verdict const verdict = verdictOf(checked.findings);
    if (console.json()) {
        std::size_t waveforms = 0;
        std::uint64_t breaks = 0;
        for (TrackOverview const& overview : overviews) {
            if (overview.sound) waveforms += overview.sound->subchannels().size();
            if (overview.timecode) breaks += overview.timecode->breakCount();
        }
        printDocument(console, "report",
                      {{"path", path},
                       {"output", dry ? Json(nullptr) : Json(output)},
                       {"dry_run", dry},
                       {"page_bytes", page.size()},
                       {"level", level.name},
                       {"verdict", verdict.text},
                       {"findings", countsJson(checked.findings)},
                       {"tracks", overviews.size()},
                       {"waveforms", waveforms},
                       {"timecode_breaks", breaks}});
    } else if (output != "-" && !console.quiet()) {
        console.print(fmt::format("{}: {}, {} findings; {} of {}\n", printable(path), verdict.text,
                                  checked.findings.number(), bytesText(page.size()),
                                  dry ? "page would be written" : printable(output)));
    }
    return verdict.code;
}

constexpr auto OPERANDS = std::to_array<Operand>({{"CLIP", "a clip file"}});
constexpr auto OPTIONS = std::to_array<Option>({OUTPUT, QUICK, DEEP, DRY_RUN, FORCE});
constexpr auto EXAMPLES = std::to_array<Example>({
    {"kelvonclip report take.clip -o page.html", "show a clip in a browser"},
    {"kelvonclip report --deep --json take.clip -o page.html", "read every unit, and say for programs what came of it"},
});

}  // namespace

Command const REPORT = {
    "report",
    "write a page that shows a clip to a person",
    "Writes one HTML page that needs nothing else: what info knows, the tracks, where they lie in the file, the "
    "waveform "
    "of each subchannel with its joins and fades, the breaks of the timecode, and what verify finds. It can be sent, "
    "printed and kept. Its size is bounded; what is left out is said in it.\n\n"
    "Units are numbered as in verify, without trims. With --quick no unit is read, so there are no waveforms and no "
    "breaks. Ends as verify does: with 0 if nothing is wrong, with 4 if the clip's recording was not finished, with 3 "
    "if "
    "it is damaged. A file without a clip header has no page.",
    OPERANDS,
    OPTIONS,
    EXAMPLES,
    run,
};

}  // namespace tool
