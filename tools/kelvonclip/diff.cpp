// diff: what two clips do not have in common, header and units.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "clip_view.h"
#include "commands.h"
#include "console.h"
#include "each_clip.h"
#include "failure.h"
#include "json.h"
#include "text.h"
#include "unit_stream.h"
#include "vfile/aligned_buffer.h"
#include "xml/xml_tree.h"

namespace tool {

namespace {

using namespace KelvonClip;

// The texts of a header by the path of their element: "TrackMetaVector/TrackMeta[1]/TrackType". Left out is where the
// tracks lie ("VFile").
std::map<std::string, std::string> headerTexts(MetaObject const& header) {
    std::map<std::string, std::string> texts;
    std::vector<std::pair<XmlNode, std::string>> open = {{header.tree.root(), ""}};
    while (!open.empty()) {
        auto const [node, path] = std::move(open.back());
        open.pop_back();
        std::map<std::string, std::size_t> seen;
        for (XmlNode const child : node.children()) {
            std::string const name(child.name());
            if (name == "VFile") continue;
            std::size_t const number = seen[name]++;
            std::string child_path = fmt::format("{}{}{}", path, path.empty() ? "" : "/", name);
            if (number > 0) child_path += fmt::format("[{}]", number);
            if (child.children().empty()) texts[child_path] = child.text().toUtf8();
            open.emplace_back(child, std::move(child_path));
        }
    }
    return texts;
}

Json textOf(std::map<std::string, std::string> const& texts, std::string const& path) {
    auto const found = texts.find(path);
    return found == texts.end() ? Json(nullptr) : Json(found->second);
}

Json headerDifferences(ClipView const& a, ClipView const& b) {
    auto const of_a = headerTexts(a.header()), of_b = headerTexts(b.header());
    auto all = of_a;
    all.insert(of_b.begin(), of_b.end());
    Json differences = Json::array();
    for (auto const& [path, text] : all) {
        Json const in_a = textOf(of_a, path), in_b = textOf(of_b, path);
        if (in_a != in_b) differences.push_back({{"element", path}, {"a", in_a}, {"b", in_b}});
    }
    return differences;
}

std::uint64_t unitsOf(TrackView const* view) { return view != nullptr ? view->track->lengthInUnits() : 0; }

struct BytesDiffer {
    std::size_t first, count;
};

std::optional<BytesDiffer> compare(std::span<std::byte const> a, std::span<std::byte const> b) {
    std::size_t const common = std::min(a.size(), b.size());
    if (a.size() == b.size() && std::memcmp(a.data(), b.data(), common) == 0) return std::nullopt;
    BytesDiffer found{common, std::max(a.size(), b.size()) - common};
    for (std::size_t i = common; i-- > 0;)
        if (a[i] != b[i]) found = {i, found.count + 1};
    return found;
}

class Comparison {
  public:
    Comparison(ClipView const& one, ClipView const& other, Console& to) : a(one), b(other), console(to) {}

    int run() {
        Json const header = headerDifferences(a, b);
        differ = !header.empty();
        if (console.json()) {
            console.print(
                fmt::format("{{\"version\":{},\"command\":\"diff\",\"a\":{},\"b\":{},\"header\":{},\"tracks\":[",
                            JSON_VERSION, dumped(a.path()), dumped(b.path()), dumped(header, -1)));
        } else {
            for (Json const& row : header)
                console.print(fmt::format("{}: {} | {}\n", printable(row["element"].get<std::string>()),
                                          shown(row["a"]), shown(row["b"])));
        }
        std::uint64_t bytes = 0;
        std::size_t const count = std::max(a.tracks().size(), b.tracks().size());
        for (TrackView const& view : a.tracks())
            if (view.track) bytes += unitsOf(&view) * view.format.stored_unit_size;
        Progress progress(console, "diff", bytes);
        for (std::size_t number = 0; number < count; ++number)
            track(number, progress);
        if (console.json()) console.print(fmt::format("],\"differ\":{}}}\n", differ));
        return graver(code, differ ? DIFFERS : FINE);
    }

  private:
    // Null if the clip has no track of this number, or one that cannot be read; that is an error of its own.
    TrackView const* trackOf(ClipView const& clip, std::size_t number) {
        if (number >= clip.tracks().size()) return nullptr;
        try {
            return &clip.readable(number);
        } catch (Failure const& failure) {
            console.error(failure.what());
            code = graver(code, failure.code);
            return nullptr;
        }
    }

    static std::string shown(Json const& text) {
        return text.is_null() ? "(not there)" : printable(text.get<std::string>());
    }

    void track(std::size_t number, Progress& progress) {
        TrackView const* const in_a = trackOf(a, number);
        TrackView const* const in_b = trackOf(b, number);
        std::uint64_t const units_a = unitsOf(in_a), units_b = unitsOf(in_b);
        if (console.json())
            console.print(fmt::format("{}{{\"track\":{},\"units_a\":{},\"units_b\":{},\"units\":[",
                                      number > 0 ? ",\n" : "\n", number, units_a, units_b));
        bool first = true;
        if (in_a != nullptr && in_b != nullptr) {
            AlignedBuffer other(in_b->format.stored_unit_size);
            auto const common = static_cast<std::uint32_t>(std::min(units_a, units_b));
            streamUnits(a, number, 0, common, [&](std::uint32_t unit, std::span<std::byte const> bytes) {
                progress.step(bytes.size());
                b.readUnit(number, unit, other.data());
                auto const found = compare(bytes, {other.data(), in_b->format.unit_size});
                if (!found) return;
                differ = true;
                if (console.json())
                    console.print(fmt::format("{}{{\"unit\":{},\"first_byte\":{},\"bytes\":{}}}", first ? "" : ",",
                                              unit, found->first, found->count));
                else
                    console.print(fmt::format("track {}, unit {}: {} bytes differ, the first at byte {}\n", number,
                                              unit, found->count, found->first));
                first = false;
            });
        }
        if (console.json()) console.print("]}");
        if ((in_a == nullptr) != (in_b == nullptr) || units_a != units_b) {
            differ = true;
            if (!console.json())
                console.print(fmt::format("track {}: {} units | {} units\n", number, units_a, units_b));
        }
    }

    ClipView const& a;
    ClipView const& b;
    Console& console;
    bool differ = false;
    int code = FINE;
};

int run(Arguments const& arguments, Console& console) {
    ClipView const a(arguments.text("A")), b(arguments.text("B"));
    return Comparison(a, b, console).run();
}

constexpr auto OPERANDS = std::to_array<Operand>({{"A", "a clip file"}, {"B", "another one"}});
constexpr auto EXAMPLES = std::to_array<Example>({
    {"kelvonclip diff take.clip other.clip", "what two clips do not have in common"},
    {"kelvonclip diff --json take.clip take.clip", "the same for programs"},
});

}  // namespace

Command const DIFF = {
    "diff",
    "compare the headers and units of two clips",
    "Prints the texts of the headers that differ, without the description of where the tracks lie, and each unit that "
    "differs, with the number of bytes and the first one. Tracks are compared by their numbers, as readers see them: "
    "trims are taken off. Prints nothing and ends with 0 if the clips are equal, with 6 if they differ, and with 3 if "
    "a track "
    "cannot be read.",
    OPERANDS,
    {},
    EXAMPLES,
    run,
};

}  // namespace tool
