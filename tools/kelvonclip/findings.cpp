#include "findings.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include <fmt/format.h>

#include "failure.h"
#include "text.h"

namespace tool {

using namespace KelvonClip::inspect;

namespace {

// In the order of the severities.
constexpr std::array SEVERITIES = {"note", "damage", "loss"};
constexpr std::array COLOURS = {Colour::dim, Colour::yellow, Colour::red};

constexpr auto LEVELS = std::to_array<CheckLevel>({
    {Level::structure, QUICK.name, "structure"},
    {Level::units, DEEP.name, "units"},
    {Level::marks, "", "marks"},  // without an option
});

std::optional<std::uint64_t> number(Json const& json, char const* name) {
    if (!json.contains(name)) return std::nullopt;
    return json[name].get<std::uint64_t>();
}

}  // namespace

CheckLevel const& checkLevel(Arguments const& arguments) {
    if (arguments.has(QUICK.name) && arguments.has(DEEP.name)) throw usage("--quick and --deep exclude each other");
    for (CheckLevel const& row : LEVELS)
        if (row.option.empty() || arguments.has(row.option)) return row;
    return LEVELS.back();
}

Verdict verdictOf(Findings const& findings) {
    auto const worst = findings.worst();
    if (worst && *worst != Severity::note) return {DAMAGED, "damaged"};
    if (findings.number(FindingKind::units_behind_length) != 0 || findings.number(FindingKind::bytes_behind_log) != 0)
        return {UNFINISHED, "unfinished"};
    return {FINE, "fine"};
}

int conditionOf(Findings const& findings) {
    Findings grave(0);
    for (std::size_t number = 0; number < FINDING_KINDS; ++number) {
        auto const kind = static_cast<FindingKind>(number);
        bool const harmless = kind == FindingKind::units_not_stored || kind == FindingKind::header_field_missing;
        if (findings.number(kind) != 0 && !harmless) grave.add({.kind = kind});
    }
    return verdictOf(grave).code;
}

Json findingsJson(Findings const& findings) {
    Json list = Json::array();
    for (Finding const& finding : findings.list()) {
        KindOfFinding const& kind = kindOf(finding.kind);
        Json row = {{"kind", kind.name},
                    {"severity", SEVERITIES.at(static_cast<std::size_t>(kind.severity))},
                    {"text", kind.text},
                    {"count", finding.count},
                    {"counted", kind.counted}};
        if (finding.track) row["track"] = *finding.track;
        if (finding.unit) row["unit"] = *finding.unit;
        if (finding.offset) row["offset"] = *finding.offset;
        if (!finding.file.empty()) row["file"] = finding.file.toUtf8();
        if (!finding.detail.empty()) row["detail"] = finding.detail.toUtf8();
        list.push_back(row);
    }
    return list;
}

std::string findingLine(Json const& finding, Console const& console) {
    std::string const severity = finding["severity"].get<std::string>();
    Colour colour = Colour::plain;
    for (std::size_t i = 0; i < SEVERITIES.size(); ++i)
        if (severity == SEVERITIES[i]) colour = COLOURS[i];
    std::string const place = toText(Place{{}, number(finding, "track"), number(finding, "unit")});
    std::string line = console.paint(colour, fmt::format("{:<6}", severity)) + "  ";
    if (!place.empty()) line += place + ": ";
    line += fmt::format("{} ({} {}", finding["text"].get<std::string>(), finding["count"].get<std::uint64_t>(),
                        finding["counted"].get<std::string>());
    if (finding.contains("offset")) line += fmt::format(", at byte {}", finding["offset"].get<std::uint64_t>());
    if (finding.contains("file")) line += fmt::format(" of {}", printable(finding["file"].get<std::string>()));
    line += ")";
    if (finding.contains("detail")) line += ": " + printable(finding["detail"].get<std::string>());
    return line;
}

void noteDamage(ClipView const& clip, Console& console) {
    auto const worst = clip.findings().worst();
    if (worst && *worst != Severity::note)
        console.note(printable(clip.path()) +
                     ": the structure is damaged, and not all is shown; see kelvonclip verify");
}

}  // namespace tool
