// verify: the checker, for people and programs.
#include <array>
#include <cstdint>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include <fmt/format.h>

#include <kelvonclip/kelvon_std.h>

#include "clip_view.h"
#include "commands.h"
#include "each_clip.h"
#include "findings.h"
#include "inspect/check.h"
#include "text.h"

namespace tool {

namespace {

using namespace KelvonClip;

Json tracksJson(inspect::Report const& report) {
    Json tracks = Json::array();
    for (inspect::CheckedTrack const& track : report.tracks)
        tracks.push_back({{"track", tracks.size()},
                          {"format", track.format_name.toUtf8()},
                          {"category", categoryText(track.format.category)},
                          {"reachable", track.reachable},
                          {"units", track.length_units},
                          {"stored_units", track.stored_units},
                          {"units_behind_length", track.units_behind}});
    return tracks;
}

std::string show(Json const& clip, Console const& console) {
    std::string const verdict = clip["verdict"].get<std::string>();
    if (console.quiet() && verdict == "fine") return {};
    Colour const colour = verdict == "fine" ? Colour::green : verdict == "damaged" ? Colour::red : Colour::yellow;
    std::string text =
        fmt::format("{}: {}\n", printable(clip["path"].get<std::string>()), console.paint(colour, verdict));
    for (Json const& finding : clip["findings"])
        text += "  " + findingLine(finding, console) + "\n";
    if (auto const left_out = clip["findings_left_out"].get<std::uint64_t>(); left_out != 0)
        text += fmt::format("  and {} findings more\n", left_out);
    if (!console.verbose()) return text;
    for (Json const& track : clip["tracks"])
        text += fmt::format("  track {}: {}, {} of {} units stored\n", track["track"].get<std::uint64_t>(),
                            printable(track["format"].get<std::string>()), track["stored_units"].get<std::uint64_t>(),
                            track["units"].get<std::uint64_t>());
    return text;
}

std::uint64_t totalBytes(std::vector<std::string> const& paths) {
    std::uint64_t total = 0;
    for (std::string const& path : paths) {
        std::error_code ignored;
        auto const size = std::filesystem::file_size(fsPath(path), ignored);
        if (!ignored) total += size;
    }
    return total;
}

int run(Arguments const& arguments, Console& console) {
    CheckLevel const& level = checkLevel(arguments);
    Progress progress(console, "verify", totalBytes(arguments.list("CLIP")));
    auto const ask = [&](std::string const& path) -> Answer {
        auto const file = openForReading(path, [&](std::uint64_t bytes) { progress.step(bytes); });
        inspect::Report const report = inspect::check(file, kstring(path), {level.level, {}});
        Verdict const verdict = verdictOf(report.findings);
        wchar_t const* const standard = toString(report.standard);
        return {{{"path", path},
                 {"level", level.name},
                 {"verdict", verdict.text},
                 {"standard", standard != nullptr ? Json(utf8(standard)) : Json(nullptr)},
                 {"findings", findingsJson(report.findings)},
                 {"findings_left_out", report.findings.leftOut()},
                 {"tracks", tracksJson(report)}},
                verdict.code};
    };
    return forEachClip("verify", arguments, console, ask, show);
}

constexpr auto OPERANDS = std::to_array<Operand>({{"CLIP", "clip files", 1, ANY_NUMBER}});
constexpr auto OPTIONS = std::to_array<Option>({
    QUICK,
    DEEP,
    JOBS,
});
constexpr auto EXAMPLES = std::to_array<Example>({
    {"kelvonclip verify take.clip", "check the structure, the timecode and the audio of a clip"},
    {"kelvonclip verify --deep --json take.clip", "read everything, and report for programs"},
});

}  // namespace

Command const VERIFY = {
    "verify",
    "check clips without changing them",
    "Checks the structure of each clip, and that its timecode counts on and its audio blocks follow each other "
    "(sequence words, phases, rates, fades). A finding is a note (nothing is wrong), damage (not as it should be; what "
    "is said to be reachable is not affected) or loss (data cannot be reached).\n\n"
    "Ends with 0 if nothing is wrong, with 4 if a clip's recording was not finished (kelvonclip recover), with 3 if a "
    "clip is damaged.",
    OPERANDS,
    OPTIONS,
    EXAMPLES,
    run,
};

}  // namespace tool
