// dump: the structure of a clip file, byte by byte.
#include <algorithm>
#include <array>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <span>
#include <string>
#include <vector>

#include <fmt/compile.h>
#include <fmt/format.h>

#include "audio/hemlock_block.h"
#include "clip_view.h"
#include "commands.h"
#include "failure.h"
#include "findings.h"
#include "foundation/load_store.h"
#include "inspect/budget.h"
#include "inspect/essence.h"
#include "inspect/log_walk.h"
#include "json.h"
#include "labels.h"
#include "sparse_logs.h"
#include "text.h"
#include "vfile/aligned_buffer.h"
#include "vfile/sparse2_format.h"
#include "xml/xml_parse.h"

namespace tool {

namespace {

using namespace KelvonClip;

// In the order of VFileKind.
constexpr std::array KINDS = {"none", "FileName", "Sparse", "Sparse2", "ThisFile", "Partition", "Grow"};

Json chainJson(inspect::Layer const& outermost) {
    Json chain = Json::array();
    for (inspect::Layer const* layer = &outermost; layer != nullptr; layer = layer->below.get()) {
        Json level = {{"kind", KINDS.at(static_cast<std::size_t>(layer->kind))},
                      {"start", layer->start},
                      {"length", layer->length}};
        if (layer->isSparse()) level["extents"] = layer->map.count();
        if (!layer->path.empty()) level["file"] = layer->path.toUtf8();
        if (layer->kind == VFileKind::grow)
            if (auto const host = layer->below->hostByte(0)) level["header_at"] = *host;
        chain.push_back(level);
    }
    return chain;
}

Json tracksJson(ClipView const& clip) {
    Json tracks = Json::array();
    for (TrackView const& view : clip.tracks())
        tracks.push_back({{"track", tracks.size()},
                          {"format", view.format_name},
                          {"chain", view.layer ? chainJson(*view.layer) : Json::array()}});
    return tracks;
}

std::string hexLines(std::span<std::byte const> bytes, std::uint64_t base) {
    constexpr std::size_t WIDTH = 16;
    fmt::memory_buffer text;
    auto out = std::back_inserter(text);
    std::size_t repeated = 0;
    for (std::size_t at = 0; at < bytes.size(); at += WIDTH) {
        auto const line = bytes.subspan(at, std::min(WIDTH, bytes.size() - at));
        bool const last = at + WIDTH >= bytes.size();
        bool const same = at >= WIDTH && !last && std::ranges::equal(line, bytes.subspan(at - WIDTH, WIDTH));
        if (same) {
            if (repeated++ == 0) fmt::format_to(out, "*\n");
            continue;
        }
        repeated = 0;
        fmt::format_to(out, FMT_COMPILE("{:010x} "), base + at);
        for (std::size_t i = 0; i < WIDTH; ++i) {
            if (i % 8 == 0) fmt::format_to(out, " ");
            if (i < line.size())
                fmt::format_to(out, FMT_COMPILE("{:02x} "), static_cast<unsigned>(line[i]));
            else
                fmt::format_to(out, "   ");
        }
        fmt::format_to(out, " |");
        for (std::byte const byte : line) {
            auto const c = static_cast<unsigned char>(byte);
            text.push_back(c >= 0x20 && c < 0x7F ? static_cast<char>(c) : '.');
        }
        fmt::format_to(out, "|\n");
    }
    return {text.data(), text.size()};
}

Json blocksJson(ClipView const& clip, TrackFormat const& format, inspect::UnitBytes unit) {
    inspect::AudioUnit const audio = inspect::readAudioUnit(format, clip.header().frequency, unit);
    hemlock::Cadence const& cadence = hemlock::cadenceOf(clip.header().frequency);
    std::size_t const size = toAudioSize(clip.header().frequency);
    Json blocks = Json::array();
    for (std::size_t i = 0; i < audio.count; ++i) {
        Json block = {{"subchannel", i},
                      {"magic", fmt::format("{:08x}", loadLE32(unit.data() + i * size + hemlock::block::MAGIC_AT))},
                      {"rate_code", static_cast<unsigned>(unit[i * size + hemlock::block::RATE_CODE_AT])},
                      {"valid", audio.blocks[i].has_value()}};
        if (auto const& header = audio.blocks[i]) {
            block["fade_in"] = header->fade_in;
            block["fade_out"] = header->fade_out;
            block["phase"] = header->phase;
            block["block_byte"] = header->block_byte;
            block["block_word"] = header->block_word;
            block["samples"] = cadence.sampleCount(header->phase);
        }
        blocks.push_back(block);
    }
    return blocks;
}

int dumpUnit(ClipView const& clip, std::uint64_t track, std::uint64_t unit, Console& console) {
    TrackView const& view = clip.readable(track);
    if (unit >= view.track->lengthInUnits()) throw Failure(USAGE, {clip.path(), track, unit}, "there is no such unit");
    AlignedBuffer buffer(view.format.stored_unit_size);
    clip.readUnit(track, static_cast<std::uint32_t>(unit), buffer.data());
    inspect::UnitBytes const bytes{buffer.data(), view.format.unit_size};
    Json fields = Json::object();
    if (view.format.category == TrackCategory::audio) fields["blocks"] = blocksJson(clip, view.format, bytes);
    if (view.format.category == TrackCategory::timecode) {
        KTimecode const timecode = KTimecode::from_tc64(clip.header().frequency, bytes.data());
        fields["timecode"] = timecode.is_defined() ? timecodeJson(timecode) : Json(nullptr);
    }
    if (console.json()) {
        std::string hex;
        for (std::byte const byte : bytes)
            fmt::format_to(std::back_inserter(hex), FMT_COMPILE("{:02x}"), static_cast<unsigned>(byte));
        Json document = {{"path", clip.path()}, {"track", track}, {"unit", unit}, {"bytes", hex}};
        document.update(fields);
        return printDocument(console, "dump", document), FINE;
    }
    for (auto const& [name, value] : fields.items())
        for (Json const& row : value.is_array() ? value : Json::array({value}))
            console.print(fmt::format("{} {}\n", name, dumped(row, -1)));
    console.print(hexLines(bytes, 0));
    return FINE;
}

// Superblock, map blocks and records of one sparse file of format 2, in the order of the log.
class LogPrinter {
  public:
    LogPrinter(inspect::Layer const& sparse, Console& to)
        : layer(sparse), console(to), walk(*sparse.below->file, budget) {}

    void run() {
        if (KString const error = walk.begin(); !error.empty()) {
            std::string const why = printable(error.toUtf8());
            return say(fmt::format("superblock at byte {}: {}", at(0), why),
                       fmt::format("{{\"superblock_at\":{},\"error\":{}}}", at(0), dumped(why)));
        }
        say(fmt::format("superblock at byte {}: length {}", at(0), walk.fileLength()),
            fmt::format("{{\"superblock_at\":{},\"length\":{},\"blocks\":[", at(0), walk.fileLength()));
        std::uint64_t steps = 0;
        while (auto const step = walk.next()) {
            if (steps++ % 4096 == 0) stopIfInterrupted();
            if (!block_open) beginBlock(*step);
            step->kind == inspect::LogWalk::Step::record ? record(*step) : endBlock();
        }
        if (block_open) endBlock();
        say(fmt::format("the log ends at byte {}", at(walk.logEnd())),
            fmt::format("],\"log_end\":{}}}", at(walk.logEnd())));
    }

  private:
    // Bytes of the host file.
    std::uint64_t at(std::uint64_t position) const { return layer.below->hostByte(position).value_or(0); }

    void say(std::string const& line, std::string const& json) {
        if (console.json())
            console.print(json);
        else if (!line.empty())
            console.print(line + "\n");
    }
    // `step`: the first of the block, its first record or, of an empty one, its end.
    void beginBlock(inspect::LogWalk::Step const& step) {
        bool const empty = step.kind == inspect::LogWalk::Step::block_end;
        std::uint64_t const place = at(empty ? step.at : step.at - sparse2::map_block::RECORDS_AT);
        auto const [of_run, index] = sparse2::placeOf(step.block);
        say(fmt::format("map block {} (run {}, index {}) at byte {}", step.block, of_run, index, place),
            fmt::format("{}{{\"block\":{},\"run\":{},\"index\":{},\"at\":{},\"records\":[", blocks++ > 0 ? ",\n" : "\n",
                        step.block, of_run, index, place));
        block_open = true;
        records = 0;
    }
    void record(inspect::LogWalk::Step const& step) {
        Extent const& extent = step.extent;
        fmt::memory_buffer text;
        auto const out = std::back_inserter(text);
        if (console.json())
            fmt::format_to(out, FMT_COMPILE("{}{{\"at\":{},\"start\":{},\"length\":{},\"host\":{}}}"),
                           records > 0 ? ",\n" : "\n", at(step.at), extent.start, extent.length, at(extent.host));
        else
            fmt::format_to(out, FMT_COMPILE("  record at byte {}: bytes {} + {} lie at byte {}\n"), at(step.at),
                           extent.start, extent.length, at(extent.host));
        ++records;
        console.print({text.data(), text.size()});
    }
    void endBlock() {
        say(fmt::format("  {} records", records), "]}");
        block_open = false;
    }

    inspect::Layer const& layer;
    Console& console;
    inspect::Budget budget{inspect::Limits{}};
    inspect::LogWalk walk;
    bool block_open = false;
    std::uint64_t blocks = 0, records = 0;
};

std::string chainLine(Json const& chain) {
    std::string line;
    for (Json const& level : chain) {
        line += fmt::format("{}{}", line.empty() ? "" : " in ", level["kind"].get<std::string>());
        std::string const kind = level["kind"].get<std::string>();
        if (kind == "Partition")
            line += fmt::format(" {} + {}", level["start"].get<std::uint64_t>(), level["length"].get<std::uint64_t>());
        else
            line += fmt::format(" of {} bytes", level["length"].get<std::uint64_t>());
        if (level.contains("header_at"))
            line += fmt::format(" (header at byte {})", level["header_at"].get<std::uint64_t>());
        if (level.contains("file")) line += " " + printable(level["file"].get<std::string>());
    }
    return line;
}

int dumpStructure(ClipView const& clip, Console& console) {
    std::string const xml = xmlWrite(toElement(clip.header().tree.root()), XmlLayout::indented).toUtf8();
    Json const tracks = tracksJson(clip);
    if (console.json()) {
        Json head = {
            {"version", JSON_VERSION}, {"command", "dump"}, {"path", clip.path()}, {"header", xml}, {"tracks", tracks}};
        std::string text = dumped(head);
        text.resize(text.find_last_of('}') - 1);
        console.print(text + ",\n\"maps\": [\n");
    } else {
        std::string line;
        for (char const c : xml) {
            if (c != '\n') {
                line += c;
                continue;
            }
            console.print(printable(line.substr(0, line.find_last_not_of('\r') + 1)) + "\n");
            line.clear();
        }
        if (!line.empty()) console.print(printable(line) + "\n");
        for (Json const& track : tracks)
            console.print(fmt::format("track {}: {}: {}\n", track["track"].get<std::uint64_t>(),
                                      printable(track["format"].get<std::string>()), chainLine(track["chain"])));
    }
    bool first = true;
    for (inspect::Layer const* const layer : sparseLayers(clip)) {
        if (layer->kind != VFileKind::sparse2) continue;
        if (console.json() && !first) console.print(",\n");
        first = false;
        LogPrinter(*layer, console).run();
    }
    if (console.json()) console.print("\n]\n}\n");
    return FINE;
}

int run(Arguments const& arguments, Console& console) {
    ClipView const clip(arguments.text("CLIP"));
    noteDamage(clip, console);
    auto const track = arguments.number("--track"), unit = arguments.number("--unit");
    if (track.has_value() != unit.has_value()) throw usage("--track and --unit belong together");
    return track ? dumpUnit(clip, *track, *unit, console) : dumpStructure(clip, console);
}

constexpr auto OPERANDS = std::to_array<Operand>({{"CLIP", "a clip file"}});
constexpr auto OPTIONS = std::to_array<Option>({
    TRACK,
    {"--unit", "-u", "N", "this unit of the track, counted from 0"},
});
constexpr auto EXAMPLES = std::to_array<Example>({
    {"kelvonclip dump take.clip", "header, containers, map blocks and records with their places in the file"},
    {"kelvonclip dump --track 1 --unit 0 take.clip",
     "one unit of an audio track: the fields of its blocks, and all bytes"},
});

}  // namespace

Command const DUMP = {
    "dump",
    "show the structure of a clip file byte by byte",
    "Prints the header as indented XML, the stack of virtual files of every track, and the superblock, map blocks and "
    "records of every sparse container, each with its byte in the file. With --track and --unit it prints one unit "
    "instead: the fields of an audio block or of a timecode, and all bytes in hexadecimal.",
    OPERANDS,
    OPTIONS,
    EXAMPLES,
    run,
};

}  // namespace tool
