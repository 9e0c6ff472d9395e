// trim: the fields that a clip's header hides at both ends, shown and changed in place.
#include <array>
#include <cstdint>
#include <string>

#include <fmt/format.h>

#include "clip_view.h"
#include "commands.h"
#include "console.h"
#include "header_edits.h"
#include "text.h"

namespace tool {

namespace {

using namespace KelvonClip;

struct Shown {
    std::uint32_t start, end;  // fields that are hidden
    std::uint64_t fields;      // that are shown
};
// Closes the clip again: it cannot be open for reading and for writing at once.
Shown look(std::string const& path) {
    ClipView const clip(path);
    return {clip.header().trim_start, clip.header().trim_end, clip.lengthInFields()};
}

int run(Arguments const& arguments, Console& console) {
    std::string const path = arguments.text("CLIP");
    bool const dry = arguments.has("--dry-run");
    Shown const before = look(path);
    auto const wanted = [&](char const* option, std::uint32_t otherwise) {
        return static_cast<std::uint32_t>(arguments.number(option, UINT32_MAX).value_or(otherwise));
    };
    SetHeaderTrims const trims{wanted("--start", before.start), wanted("--end", before.end)};
    bool const changed = trims.start != before.start || trims.end != before.end;
    HeaderEdit const edit = trims;
    if (changed) editHeader(path, {&edit, 1}, dry);
    bool const would = changed && dry;
    std::uint64_t const shown = changed && !dry ? look(path).fields : before.fields;
    if (console.json()) {
        printDocument(console, "trim",
                      {{"path", path},
                       {"dry_run", dry},
                       {"changed", changed},
                       {"trim", {{"start", trims.start}, {"end", trims.end}}},
                       {"length", {{"fields", shown}}}});
        return FINE;
    }
    console.print(fmt::format("{}: {} fields {} hidden at the start, {} at the end; {} {} shown\n", printable(path),
                              trims.start, would ? "would be" : "are", trims.end, shown, would ? "are now" : "are"));
    return FINE;
}

constexpr auto OPERANDS = std::to_array<Operand>({{"CLIP", "the clip"}});
constexpr auto OPTIONS = std::to_array<Option>({
    {"--start", "-s", "FIELDS", "hide so many fields at the start"},
    {"--end", "-e", "FIELDS", "hide so many fields at the end"},
    DRY_RUN,
});
constexpr auto EXAMPLES = std::to_array<Example>({
    {"kelvonclip trim take.clip", "show what is hidden"},
    {"kelvonclip trim --start 2 --end 0 take.clip", "hide the first two fields, and none at the end"},
});

}  // namespace

Command const TRIM = {
    "trim",
    "show or change what a clip hides at both ends",
    "Shows how many fields the header hides at the start and at the end of every track, after setting what the options "
    "ask for; what is not given stays. Nothing is cut off: 0 shows everything again. A track is hidden in whole units, "
    "and keeps two at least. The file has the old or the new header at every moment, after a power failure too (up to "
    "16384 bytes). "
    "Programs that have the clip open go on with what they know.",
    OPERANDS,
    OPTIONS,
    EXAMPLES,
    run,
};

}  // namespace tool
