// checksum and check: one XXH3 sum a unit, so that a clip that grows keeps the sums it has.
#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include <fmt/compile.h>
#include <fmt/format.h>
#include <xxhash.h>

#include "clip_view.h"
#include "commands.h"
#include "console.h"
#include "failure.h"
#include "host.h"
#include "json.h"
#include "text.h"
#include "unit_stream.h"

namespace tool {

namespace {

using namespace KelvonClip;

struct Chosen {
    std::vector<std::size_t> tracks;
    int code = FINE;
};

// The tracks to be read. One that cannot be read is said, and the others go on.
Chosen chosenTracks(ClipView const& clip, Arguments const& arguments, Console& console) {
    if (auto const track = arguments.number("--track")) {
        clip.readable(*track);
        return {{static_cast<std::size_t>(*track)}};
    }
    Chosen chosen;
    for (std::size_t number = 0; number < clip.tracks().size(); ++number) {
        try {
            clip.readable(number);
            chosen.tracks.push_back(number);
        } catch (Failure const& failure) {
            console.error(failure.what());
            chosen.code = failure.code;
        }
    }
    return chosen;
}

std::uint64_t bytesOf(ClipView const& clip, std::vector<std::size_t> const& tracks) {
    std::uint64_t bytes = 0;
    for (std::size_t const number : tracks) {
        TrackView const& view = clip.tracks()[number];
        bytes += std::uint64_t{view.track->lengthInUnits()} * view.format.stored_unit_size;
    }
    return bytes;
}

std::string sumText(std::span<std::byte const> unit) {
    return fmt::format(FMT_COMPILE("{:016x}"), XXH3_64bits(unit.data(), unit.size()));
}

int runChecksum(Arguments const& arguments, Console& console) {
    ClipView const clip(arguments.text("CLIP"));
    auto const [tracks, code] = chosenTracks(clip, arguments, console);
    Progress progress(console, "checksum", bytesOf(clip, tracks));
    if (console.json())
        console.print(fmt::format("{{\"version\":{},\"command\":\"checksum\",\"path\":{},\"sums\":[", JSON_VERSION,
                                  dumped(clip.path())));
    bool first = true;
    for (std::size_t const number : tracks)
        streamUnits(clip, number, 0, clip.tracks()[number].track->lengthInUnits(),
                    [&](std::uint32_t unit, std::span<std::byte const> bytes) {
                        progress.step(bytes.size());
                        std::string const sum = sumText(bytes);
                        if (console.json())
                            console.print(fmt::format(FMT_COMPILE("{}{{\"track\":{},\"unit\":{},\"xxh3\":\"{}\"}}"),
                                                      first ? "\n" : ",\n", number, unit, sum));
                        else
                            console.print(fmt::format(FMT_COMPILE("{}  {}/{}\n"), sum, number, unit));
                        first = false;
                    });
    if (console.json()) console.print("\n]}\n");
    return code;
}

struct Listed {
    std::uint64_t track = 0, unit = 0;
    std::string sum;
};

// A line "SUM  TRACK/UNIT".
std::optional<Listed> listedIn(std::string_view line) {
    constexpr std::size_t SUM = 16;
    if (line.size() < SUM + 5 || line.substr(SUM, 2) != "  ") return std::nullopt;
    Listed listed{0, 0, std::string(line.substr(0, SUM))};
    if (listed.sum.find_first_not_of("0123456789abcdef") != std::string::npos) return std::nullopt;
    char const* const end = line.data() + line.size();
    auto const [slash, wrong] = std::from_chars(line.data() + SUM + 2, end, listed.track);
    if (wrong != std::errc() || slash == end || *slash != '/') return std::nullopt;
    auto const [after, wrong_unit] = std::from_chars(slash + 1, end, listed.unit);
    return wrong_unit == std::errc() && after == end ? std::optional(listed) : std::nullopt;
}

std::string wholeText(std::string const& path) {
    std::string text;
    if (path == "-") {
        std::array<char, 65536> part{};
        while (auto const got = host::readIn(part.data(), part.size())) {
            stopIfInterrupted();
            text.append(part.data(), *got);
            if (*got == 0) return text;
        }
        stopIfInterrupted();
        throw Failure(FAILED, {}, "standard input cannot be read");
    }
    std::ifstream file(fsPath(path), std::ios::binary);
    if (!file) throw Failure(FAILED, {path}, "the file cannot be opened");
    text.assign(std::istreambuf_iterator<char>(file), {});
    if (file.bad()) throw Failure(FAILED, {path}, "the file cannot be read");
    return text;
}

std::vector<Listed> listedSums(std::string const& path) {
    std::string const text = wholeText(path);
    std::vector<Listed> sums;
    std::size_t number = 0;
    for (std::size_t at = 0; at < text.size();) {
        std::size_t const end = std::min(text.find('\n', at), text.size());
        std::string_view line = std::string_view(text).substr(at, end - at);
        if (line.ends_with('\r')) line.remove_suffix(1);
        at = end + 1;
        ++number;
        if (line.empty()) continue;
        auto listed = listedIn(line);
        if (!listed)
            throw Failure(FAILED, {path}, fmt::format("line {} is no checksum of kelvonclip checksum", number));
        sums.push_back(std::move(*listed));
    }
    if (sums.empty()) throw Failure(FAILED, {path}, "there is no checksum in it");
    return sums;
}

int runCheck(Arguments const& arguments, Console& console) {
    ClipView const clip(arguments.text("CLIP"));
    std::vector<Listed> const sums = listedSums(arguments.text("SUMS"));
    std::map<std::uint64_t, std::map<std::uint64_t, std::string>> wanted;
    for (Listed const& listed : sums)
        wanted[listed.track][listed.unit] = listed.sum;
    std::uint64_t bytes = 0, checked = 0;
    for (auto const& [track, units] : wanted)
        if (track < clip.tracks().size())
            bytes += units.size() * std::uint64_t{clip.readable(track).format.stored_unit_size};
    Progress progress(console, "check", bytes);
    Json differing = Json::array();
    auto const differs = [&](std::uint64_t track, std::uint64_t unit, char const* why) {
        differing.push_back({{"track", track}, {"unit", unit}, {"reason", why}});
        if (!console.json()) console.print(fmt::format("{}: {}\n", toText({clip.path(), track, unit}), why));
    };
    for (auto const& of_track : wanted) {
        std::uint64_t const track = of_track.first;
        auto const& units = of_track.second;
        if (track >= clip.tracks().size()) {
            for (auto const& [unit, sum] : units)
                differs(track, unit, "the track is missing");
            continue;
        }
        std::uint32_t const length = clip.readable(track).track->lengthInUnits();
        auto next = units.begin();
        while (next != units.end()) {
            // A stretch of units that follow each other is read as one.
            auto end = next;
            std::uint64_t const from = next->first;
            std::uint64_t to = from;
            while (end != units.end() && end->first == to && to < length)
                ++end, ++to;
            if (from >= length) {
                differs(track, from, "the unit is missing");
                ++next;
                continue;
            }
            streamUnits(clip, track, static_cast<std::uint32_t>(from), static_cast<std::uint32_t>(to),
                        [&](std::uint32_t unit, std::span<std::byte const> content) {
                            progress.step(content.size());
                            ++checked;
                            if (sumText(content) != next->second) differs(track, unit, "the unit differs");
                            ++next;
                        });
        }
    }
    if (console.json())
        printDocument(console, "check", {{"path", clip.path()}, {"checked", checked}, {"differing", differing}});
    else if (!console.quiet() || !differing.empty())
        console.print(fmt::format("{}: {} of {} units as they were\n", printable(clip.path()),
                                  sums.size() - std::min(sums.size(), differing.size()), sums.size()));
    return differing.empty() ? FINE : DIFFERS;
}

constexpr auto SUM_OPERANDS = std::to_array<Operand>({{"CLIP", "a clip file"}});
constexpr auto SUM_OPTIONS = std::to_array<Option>({TRACK});
constexpr auto SUM_EXAMPLES = std::to_array<Example>({
    {"kelvonclip checksum take.clip > take.sums", "write down the checksums of all units"},
    {"kelvonclip checksum --track 0 take.clip", "those of one track"},
});
constexpr auto CHECK_OPERANDS = std::to_array<Operand>({
    {"CLIP", "a clip file"},
    {"SUMS", "what kelvonclip checksum printed; - is standard input"},
});
constexpr auto CHECK_EXAMPLES = std::to_array<Example>({
    {"kelvonclip checksum take.clip | kelvonclip check take.clip -", "compare a clip with its checksums"},
    {"kelvonclip checksum --track 1 take.clip > sound.sums && kelvonclip check --json take.clip sound.sums",
     "the same for one track, reported for programs"},
});

}  // namespace

Command const CHECKSUM = {
    "checksum",
    "print a checksum of every unit",
    "Prints a line for every unit: its 64-bit XXH3 sum in hexadecimal, two spaces, and track/unit. A clip that has "
    "grown keeps the lines that it had. The sum covers the bytes of the unit, without the padding on the disk; trims "
    "are taken off.",
    SUM_OPERANDS,
    SUM_OPTIONS,
    SUM_EXAMPLES,
    runChecksum,
};

Command const CHECK = {
    "check",
    "compare a clip with the checksums of its units",
    "Reads the units that SUMS lists and compares them with the checksums. Units that SUMS does not list are not "
    "looked at. Ends with 6 if a unit differs or is missing.",
    CHECK_OPERANDS,
    {},
    CHECK_EXAMPLES,
    runCheck,
};

}  // namespace tool
