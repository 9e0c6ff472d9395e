// stat: what the bytes of a clip's file are used for.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "clip/clip_header.h"
#include "clip_view.h"
#include "commands.h"
#include "each_clip.h"
#include "findings.h"
#include "inspect/budget.h"
#include "inspect/log_walk.h"
#include "sparse_logs.h"
#include "text.h"
#include "vfile/grow_format.h"
#include "vfile/sparse2_format.h"

namespace tool {

namespace {

using namespace KelvonClip;

// One pass over the log of a sparse file of format 2.
struct LogUse {
    std::uint64_t map_blocks = 0, records = 0, record_bytes = 0, end = 0;
    // A stretch is a run of neighbouring records of one track, as they lie in the file.
    std::uint64_t stretches = 0;
};

LogUse logUse(inspect::Layer const& sparse, std::vector<TrackView> const& tracks) {
    LogUse use;
    inspect::Budget budget{inspect::Limits{}};
    inspect::LogWalk walk(*sparse.below->file, budget);
    if (!walk.begin().empty()) return use;
    auto const trackAt = [&](std::uint64_t position) -> std::optional<std::size_t> {
        for (std::size_t i = 0; i < tracks.size(); ++i)
            for (inspect::Layer const* layer = tracks[i].layer.get(); layer != nullptr; layer = layer->below.get())
                if (layer->kind == VFileKind::partition && layer->below.get() == &sparse &&
                    position - layer->start < layer->length)
                    return i;
        return std::nullopt;
    };
    std::optional<std::size_t> previous;
    while (auto const step = walk.next()) {
        if (step->kind == inspect::LogWalk::Step::block_end) {
            stopIfInterrupted();
            ++use.map_blocks;
            continue;
        }
        ++use.records;
        use.record_bytes += step->extent.length;
        auto const track = trackAt(step->extent.start);
        if (use.stretches == 0 || track != previous) ++use.stretches;
        previous = track;
    }
    use.end = walk.logEnd();
    return use;
}

struct Shares {
    std::uint64_t visible = 0, padding = 0, trimmed = 0, behind = 0, stored = 0;
};

// How the stored bytes of a track are used.
Json trackUse(std::size_t number, TrackView const& view) {
    Json row = {{"track", number}, {"format", view.format_name}, {"category", categoryText(view.format.category)}};
    Shares shares;
    if (view.layer && view.format.valid) {
        std::uint64_t const size = view.format.stored_unit_size;
        shares.stored = storedBytes(*view.layer);
        std::uint64_t const units = view.track->lengthInUnits(), all = view.layer->length / size;
        std::uint64_t within = 0;
        for (std::uint64_t position = 0; position < all * size;) {
            auto const reach = view.layer->reach(position, all * size - position);
            if (reach.stored) within += reach.length;
            position += reach.length == 0 ? 1 : reach.length;
        }
        std::uint64_t const header = view.layer->kind == VFileKind::grow ? grow::HEADER_SIZE : 0;
        shares.behind = shares.stored - std::min(shares.stored, within + header);
        // Without trims every stored byte within the length is visible or padding.
        shares.trimmed = all > units ? within / std::max<std::uint64_t>(all, 1) * (all - units) : 0;
        shares.padding = within / size * (size - view.format.unit_size);
        shares.visible = within - std::min(within, shares.trimmed + shares.padding);
    }
    row["stored_bytes"] = shares.stored;
    row["unit_bytes"] = shares.visible;
    row["padding_bytes"] = shares.padding;
    row["trimmed_bytes"] = shares.trimmed;
    row["bytes_behind_length"] = shares.behind;
    return row;
}

std::uint64_t sumOf(Json const& rows, char const* name) {
    std::uint64_t sum = 0;
    for (Json const& row : rows)
        sum += row[name].get<std::uint64_t>();
    return sum;
}

Answer ask(std::string const& path, std::optional<std::uint64_t> most_waste, Console& console) {
    ClipView const clip(path);
    noteDamage(clip, console);
    Json tracks = Json::array();
    for (std::size_t number = 0; number < clip.tracks().size(); ++number)
        tracks.push_back(trackUse(number, clip.tracks()[number]));
    LogUse use;
    std::uint64_t behind_map = 0;
    for (inspect::Finding const& finding : clip.findings().list())
        if (finding.kind == inspect::FindingKind::bytes_behind_log) behind_map += finding.count;
    for (inspect::Layer const* const layer : sparseLayers(clip)) {
        if (layer->kind != VFileKind::sparse2) continue;
        LogUse const one = logUse(*layer, clip.tracks());
        use.map_blocks += one.map_blocks;
        use.records += one.records;
        use.record_bytes += one.record_bytes;
        use.stretches += one.stretches;
        use.end += one.end;
    }
    std::uint64_t const file_bytes = clip.fileBytes();
    std::uint64_t const map_bytes = use.end - std::min(use.end, use.record_bytes);
    std::uint64_t const wasted = behind_map + sumOf(tracks, "bytes_behind_length") + sumOf(tracks, "trimmed_bytes") +
                                 sumOf(tracks, "padding_bytes");
    double const share = file_bytes == 0 ? 0 : 100 * static_cast<double>(wasted) / static_cast<double>(file_bytes);
    Json data = {{"path", path},
                 {"file_bytes", file_bytes},
                 {"header_bytes", std::min<std::uint64_t>(CLIP_HEADER_SIZE, file_bytes)},
                 {"map_bytes", map_bytes},
                 {"map_blocks", use.map_blocks},
                 {"records", use.records},
                 {"stretches", use.stretches},
                 {"bytes_behind_map", behind_map},
                 {"wasted_bytes", wasted},
                 {"wasted_percent", share},
                 {"tracks", tracks}};
    bool const wasteful = most_waste && share > static_cast<double>(*most_waste);
    return {data, wasteful ? UNFINISHED : FINE};
}

std::string show(Json const& clip, Console const& console) {
    auto const bytes = [](Json const& from, char const* name) { return bytesText(from[name].get<std::uint64_t>()); };
    auto const count = [&](char const* name) { return clip[name].get<std::uint64_t>(); };
    std::string text = console.paint(Colour::bold, printable(clip["path"].get<std::string>())) + "\n";
    auto const row = [&](char const* name, std::string const& value) {
        text += fmt::format("  {:<11} {}\n", name, value);
    };
    row("file", bytes(clip, "file_bytes"));
    row("map", fmt::format("{}, {:.3f} % of the file: {} blocks, {} records", bytes(clip, "map_bytes"),
                           count("file_bytes") == 0 ? 0.0
                                                    : 100.0 * static_cast<double>(count("map_bytes")) /
                                                          static_cast<double>(count("file_bytes")),
                           count("map_blocks"), count("records")));
    row("interleave", fmt::format("{} stretches of one track", count("stretches")));
    row("behind map", bytes(clip, "bytes_behind_map"));
    row("wasted", fmt::format("{}, {:.2f} %", bytes(clip, "wasted_bytes"), clip["wasted_percent"].get<double>()));
    std::vector<std::vector<std::string>> rows = {
        {"", "track", "kind", "format", "stored", "units", "padding", "trimmed", "behind length"}};
    for (Json const& track : clip["tracks"])
        rows.push_back({"", std::to_string(track["track"].get<std::uint64_t>()), track["category"].get<std::string>(),
                        printable(track["format"].get<std::string>()), bytes(track, "stored_bytes"),
                        bytes(track, "unit_bytes"), bytes(track, "padding_bytes"), bytes(track, "trimmed_bytes"),
                        bytes(track, "bytes_behind_length")});
    return text + table(rows, "lrllrrrrr");
}

int run(Arguments const& arguments, Console& console) {
    constexpr std::uint64_t ALL = 100;
    auto const most = arguments.number("--most-waste", ALL);
    return forEachClip(
        "stat", arguments, console, [&](std::string const& path) { return ask(path, most, console); }, show);
}

constexpr auto OPERANDS = std::to_array<Operand>({{"CLIP", "clip files", 1, ANY_NUMBER}});
constexpr auto OPTIONS = std::to_array<Option>({
    {"--most-waste", "", "PERCENT", "end with 4 if a clip wastes more than this share of its file"},
    JOBS,
});
constexpr auto EXAMPLES = std::to_array<Example>({
    {"kelvonclip stat take.clip", "what the bytes of a clip are used for"},
    {"kelvonclip stat --most-waste 50 take.clip", "the same, and fail if more than half of it is wasted"},
});

}  // namespace

Command const STAT = {
    "stat",
    "show what the bytes of a clip's file are used for",
    "Shows how much of each clip's file is taken by units, padding, the map and what nobody sees: units that trims "
    "hide, units behind the length of their track and bytes behind the map. These last four, with the padding, count "
    "as wasted. A stretch is a run of neighbouring records of one track: many of them mean that the tracks lie in the "
    "order in which they are played.",
    OPERANDS,
    OPTIONS,
    EXAMPLES,
    run,
};

}  // namespace tool
