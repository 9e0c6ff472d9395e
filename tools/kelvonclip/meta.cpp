// meta: the texts of a clip's header, shown and changed in place.
#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "clip_view.h"
#include "commands.h"
#include "console.h"
#include "failure.h"
#include "header_edits.h"
#include "text.h"

namespace tool {

namespace {

using namespace KelvonClip;

std::string textLine(std::string const& name, Json const& value) {
    return fmt::format("  {:<8} {}\n", name, printable(value.get<std::string>()));
}

int run(Arguments const& arguments, Console& console) {
    std::string const path = arguments.text("CLIP");
    auto const edits = wantedTexts(arguments);
    bool const dry = arguments.has("--dry-run");
    Json const before = textsJson(ClipView(path).header());
    Json const after = edits.empty() ? before : textsJson(*editHeader(path, edits, true));
    bool const changed = after != before;
    if (changed && !dry) editHeader(path, edits, false);
    if (console.json()) {
        printDocument(console, "meta", {{"path", path}, {"dry_run", dry}, {"changed", changed}, {"texts", after}});
        return FINE;
    }
    console.print(fmt::format("{}{}\n", printable(path), !changed ? "" : dry ? ": would be changed" : ": changed"));
    for (TextOption const& row : TEXT_OPTIONS)
        if (!after[row.member].get_ref<std::string const&>().empty())
            console.print(textLine(row.member, after[row.member]));
    for (auto const& [name, value] : after["meta"].items())
        console.print(textLine("meta", fmt::format("{} = {}", name, value.get<std::string>())));
    return FINE;
}

constexpr auto OPERANDS = std::to_array<Operand>({{"CLIP", "the clip"}});
constexpr auto OPTIONS = std::to_array<Option>({
    {"--title", "-t", "TEXT", "set the title; an empty text removes it"},
    {"--project", "-p", "TEXT", "set the project; an empty text removes it"},
    {"--creator", "-c", "TEXT", "set the creator; an empty text removes it"},
    {"--set", "-s", "NAME=VALUE", "set an entry of the Meta list; a name is a letter, then letters, digits and _"},
    {"--remove", "-r", "NAME", "remove an entry of the Meta list"},
    DRY_RUN,
});
constexpr auto EXAMPLES = std::to_array<Example>({
    {"kelvonclip meta take.clip", "show title, project, creator and the Meta list"},
    {"kelvonclip meta --title 'The last take' --set Reel=A004 take.clip", "set two of them"},
});

}  // namespace

Command const META = {
    "meta",
    "show or change the texts of the header",
    "Shows title, project, creator and the entries of the Meta list, after setting what the options ask for. All "
    "changes are made at once: the file has the old or the new header at every moment, after a power failure too (up "
    "to 16384 bytes). If "
    "one of them is refused, or the header has no room for them, nothing is changed.",
    OPERANDS,
    OPTIONS,
    EXAMPLES,
    run,
};

}  // namespace tool
