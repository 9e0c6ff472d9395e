// compact: a copy of a clip in the order in which it is played, without waste.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "clip/clip_header.h"
#include "clip/create_clip.h"
#include "clip_view.h"
#include "commands.h"
#include "console.h"
#include "failure.h"
#include "findings.h"
#include "foundation/load_store.h"
#include "inspect/check.h"
#include "json.h"
#include "new_clip_file.h"
#include "play_order.h"
#include "reason.h"
#include "recorders.h"
#include "recover/log_model.h"
#include "text.h"
#include "vfile/aligned_buffer.h"
#include "vfile/grow_format.h"
#include "vfile/sparse2_format.h"
#include "vfile/vfileoffset.h"
#include "vfile/vfilesparse2.h"

namespace tool {

namespace {

using namespace KelvonClip;

constexpr std::uint32_t FRAME = 2;  // fields
constexpr std::uint32_t LONGEST_PIECE = 4u << 20;

// --- Where the tracks are in the copy ---

struct Layout {
    ClipLayout clip;
    std::unique_ptr<ClipHeaderArea> header;
};

// True if the clip has the layout of a created clip, which the copy then keeps: each track is a grow container in its
// own part of one sparse file behind the header.
bool hasCreatedLayout(ClipView const& clip) {
    inspect::Layer const* sparse = nullptr;
    std::vector<inspect::Layer const*> partitions;
    for (TrackView const& view : clip.tracks()) {
        inspect::Layer const& grow = *view.layer;
        if (grow.kind != VFileKind::grow || grow.below->kind != VFileKind::partition) return false;
        inspect::Layer const& partition = *grow.below;
        inspect::Layer const& log = *partition.below;
        bool const created =
            log.kind == VFileKind::sparse2 && log.below->kind == VFileKind::this_file &&
            (sparse == nullptr || sparse == &log) && log.length % SECTOR_SIZE == 0 &&
            partition.start % SECTOR_SIZE == 0 && rangeWithin(partition.start, partition.length, log.length) &&
            partition.length - std::min<std::uint64_t>(partition.length, grow::HEADER_SIZE) >= PlayOrder::bytesOf(view);
        if (!created) return false;
        sparse = &log;
        for (inspect::Layer const* const other : partitions)
            if (partition.start < other->start + other->length && other->start < partition.start + partition.length)
                return false;
        partitions.push_back(&partition);
    }
    return true;
}

ClipLayout layoutOf(ClipView const& clip, bool keep) {
    ClipLayout layout;
    for (TrackView const& view : clip.tracks()) {
        std::uint32_t const size = view.format.stored_unit_size, fields = view.format.fields_per_unit;
        PlannedTrack track{kstring(view.format_name), layout.sparse_length, 0, size * FRAME / fields};
        if (keep) {
            inspect::Layer const& partition = *view.layer->below;
            track.start = partition.start;
            track.length = partition.length;
            layout.sparse_length = partition.below->length;
        } else {
            track.length =
                std::max(partitionLength(clip.standard(), size, fields), grow::HEADER_SIZE + PlayOrder::bytesOf(view));
            layout.sparse_length += track.length;
        }
        layout.tracks.push_back(std::move(track));
    }
    return layout;
}

// The header of the clip, with what says where the tracks are.
std::unique_ptr<ClipHeaderArea> headerOf(ClipView const& clip, ClipLayout const& layout, bool keep) {
    XmlElement root = toElement(clip.header().tree.root());
    if (!keep) {
        auto const vector = std::ranges::find(root.children, KString("TrackMetaVector"), &XmlElement::name);
        auto planned = layout.tracks.begin();
        for (XmlElement& meta : vector->children) {
            if (meta.name != KString("TrackMeta")) continue;
            std::erase_if(meta.children, [](XmlElement const& child) { return child.name == KString("VFile"); });
            meta.add(describeTrackFile(*planned++));
        }
    }
    HeaderText text = writeHeaderText(root);
    if (!text.error.empty()) throw Failure(FAILED, {clip.path()}, "the header has no room for the copy's tracks");
    return std::move(text.area);
}

Layout planLayout(ClipView const& clip) {
    bool const keep = hasCreatedLayout(clip);
    Layout layout{layoutOf(clip, keep), nullptr};
    layout.header = headerOf(clip, layout.clip, keep);
    return layout;
}

// The byte of the copy's sparse file for a byte of a track, or for its grow header.
std::uint64_t placeOf(Played const& piece, ClipLayout const& layout) {
    std::uint64_t const start = layout.tracks[piece.track].start;
    return piece.part == Played::Part::header ? start : start + grow::HEADER_SIZE + piece.position;
}

// --- What the copy will be ---

struct CopyPlan {
    std::uint32_t moment = FRAME;  // fields that lie side by side
    std::uint64_t file_bytes = 0, unit_bytes = 0, records = 0;
    std::uint64_t far_jumps = 0;  // of who plays the clip that is copied
};

// Follows the writer without writing.
CopyPlan tryMoment(ClipView const& clip, ClipLayout const& layout, std::uint32_t moment) {
    constexpr std::uint64_t FAR = 8u << 20;  // more than map blocks take between units
    CopyPlan plan{moment};
    recover::LogModel log;
    PlayOrder order(clip, moment, LONGEST_PIECE);
    std::optional<std::pair<inspect::Layer const*, std::uint64_t>> head;
    while (auto const piece = order.next()) {
        stopIfInterrupted();
        if (piece->part == Played::Part::header) {
            log.take(placeOf(*piece, layout), grow::HEADER_SIZE);
            continue;
        }
        log.take(placeOf(*piece, layout), piece->length);
        plan.unit_bytes += piece->length;
        inspect::Layer const& units = *clip.tracks()[piece->track].layer;
        auto const host = units.hostByte(piece->position);
        if (!host) continue;
        inspect::Layer const* const file = &units.bottom();
        // Each file has a place of its own where reading goes on.
        bool const far =
            head && head->first == file && (*host > head->second ? *host - head->second : head->second - *host) > FAR;
        plan.far_jumps += far ? 1 : 0;
        head = {file, *host + piece->length};
    }
    plan.file_bytes = CLIP_HEADER_SIZE + log.end();
    plan.records = std::uint64_t{log.blockCount() - 1} * sparse2::map_block::MAX_RECORDS + log.recordCount();
    return plan;
}

// Frame by frame, or more at a time where the map would not have room for so many records.
CopyPlan planCopy(ClipView const& clip, ClipLayout const& layout) {
    constexpr std::uint64_t MOST = std::uint64_t{sparse2::MAX_REPLAYED_BLOCKS} * sparse2::map_block::MAX_RECORDS;
    for (std::uint32_t moment = FRAME;; moment *= 2) {
        CopyPlan const plan = tryMoment(clip, layout, moment);
        if (plan.records <= MOST || moment > UINT32_MAX / 4) return plan;
    }
}

// --- Copying ---

// Pieces that are read together.
struct Batch {
    struct Part {
        Played piece;
        std::size_t at;
    };
    static constexpr std::size_t BYTES = 2 * std::size_t{LONGEST_PIECE};
    AlignedBuffer bytes{BYTES};
    std::vector<Part> parts;

    std::byte* dataOf(Part const& part) { return bytes.data() + part.at; }
    std::uint64_t length() const {
        std::uint64_t sum = 0;
        for (Part const& part : parts)
            sum += part.piece.length;
        return sum;
    }
};

// The clip in its order, batch after batch.
class Source {
  public:
    Source(ClipView const& view, std::uint32_t moment) : clip(view), order(view, moment, LONGEST_PIECE) {}

    // Takes the next pieces into the batch, without their bytes. None: this is the end.
    void plan(Batch& batch) {
        batch.parts.clear();
        std::size_t used = 0;
        while (true) {
            auto const piece = held ? std::exchange(held, std::nullopt) : order.next();
            if (!piece) return;
            std::size_t const needed = piece->part == Played::Part::header ? grow::HEADER_SIZE : piece->length;
            bool const goes_on = extends(batch, *piece, used);
            if (used + needed > Batch::BYTES) {
                held = piece;
                return;
            }
            if (goes_on)
                batch.parts.back().piece.length += piece->length;
            else
                batch.parts.push_back({*piece, used});
            used = batch.parts.back().at + roundedUp(std::max<std::size_t>(batch.parts.back().piece.length, needed));
        }
    }
    void startReading(Batch& batch, std::shared_ptr<CIO::CIOObject> const& done) const {
        for (Batch::Part const& part : batch.parts) {
            TrackView const& view = clip.tracks()[part.piece.track];
            if (part.piece.part == Played::Part::header) {
                std::byte* const header = batch.dataOf(part);
                std::memset(header, 0, grow::HEADER_SIZE);
                std::memcpy(header, grow::MAGIC.data(), grow::MAGIC.size());
                storeBE64(header + grow::LENGTH_AT, PlayOrder::bytesOf(view));
            } else {
                view.layer->file->read(part.piece.position, part.piece.length, batch.dataOf(part), done);
            }
        }
    }
    // Throws the Failure that names the first unit of the batch that cannot be read, if there is one.
    void blame(Batch& batch) const {
        for (Batch::Part const& part : batch.parts) {
            if (part.piece.part == Played::Part::header) continue;
            TrackView const& view = clip.tracks()[part.piece.track];
            std::uint32_t const size = view.format.stored_unit_size;
            for (std::uint64_t position = part.piece.position, end = position + part.piece.length; position < end;) {
                std::uint64_t const unit = position / size;
                auto const step = static_cast<std::uint32_t>(std::min((unit + 1) * size, end) - position);
                KString const error = view.layer->file->readSync(position, step, batch.dataOf(part));
                if (!error.empty()) throw Failure(FAILED, {clip.path(), part.piece.track, unit}, reasonText(error));
                position += step;
            }
        }
    }

  private:
    static std::size_t roundedUp(std::size_t bytes) { return (bytes + 4095) / 4096 * 4096; }
    // True if the piece goes on where the last one of the batch ends, in the track and in the buffer.
    static bool extends(Batch const& batch, Played const& piece, std::size_t used) {
        if (batch.parts.empty() || piece.part == Played::Part::header) return false;
        auto const& [last, at] = batch.parts.back();
        return last.part == Played::Part::units && last.track == piece.track &&
               last.position + last.length == piece.position && at + last.length == used;
    }

    ClipView const& clip;
    PlayOrder order;
    std::optional<Played> held;
};

class Copy {
  public:
    Copy(ClipView const& from, Layout const& where, CopyPlan const& what, Console& to)
        : clip(from), layout(where), plan(what), console(to) {}

    // Fills the file. While a batch is written the next one is read.
    void write(std::shared_ptr<VFileObject> const& file, std::string const& path) {
        auto const require = [&](KString const& error) {
            if (!error.empty()) throw Failure(FAILED, {path}, reasonText(error) + fullDisk(path));
        };
        require(file->writeSync(0, CLIP_HEADER_SIZE, layout.header->bytes.data()));
        auto const area = VFileOffset::section(file, CLIP_HEADER_SIZE);
        require(area.error);
        require(VFileSparse2::create(area.file, layout.clip.sparse_length));
        auto const sparse = VFileSparse2::open(area.file, false);
        require(sparse.error);
        Progress progress(console, "compact", plan.unit_bytes);
        Source source(clip, plan.moment);
        Batch written, read;
        do {
            source.plan(read);
            KString const error = CIO::runSync([&](std::shared_ptr<CIO::CIOObject> const& done) {
                for (Batch::Part const& part : written.parts)
                    sparse.file->write(placeOf(part.piece, layout.clip), bytesOf(part), written.dataOf(part), done);
                source.startReading(read, done);
            });
            if (!error.empty()) source.blame(read);
            require(error);
            progress.step(written.length());
            std::swap(written, read);
        } while (!written.parts.empty());
        require(sparse.file->writeBack(Durability::power_loss));
    }

    // Reads both again. Throws Failure that names the first unit that differs.
    void compare(ClipView const& copy) {
        Progress progress(console, "compare", plan.unit_bytes);
        Source source(clip, plan.moment), again(copy, plan.moment);
        Batch one, other;
        while (true) {
            source.plan(one);
            other.parts = one.parts;
            if (one.parts.empty()) return;
            KString error = readNow(source, one);
            if (!error.empty()) source.blame(one);
            if (error.empty()) error = readNow(again, other);
            if (!error.empty()) again.blame(other);
            if (!error.empty()) throw Failure(FAILED, {clip.path()}, reasonText(error));
            for (Batch::Part const& part : one.parts)
                requireEqual(part, one.dataOf(part), other.dataOf(part));
            progress.step(one.length());
        }
    }

  private:
    static std::uint32_t bytesOf(Batch::Part const& part) {
        return part.piece.part == Played::Part::header ? grow::HEADER_SIZE : part.piece.length;
    }
    static KString readNow(Source const& source, Batch& batch) {
        return CIO::runSync([&](std::shared_ptr<CIO::CIOObject> const& done) { source.startReading(batch, done); });
    }
    static std::string fullDisk(std::string const& path) {
        std::error_code unknown;
        auto const folder = std::filesystem::absolute(fsPath(path), unknown).parent_path();
        auto const space = std::filesystem::space(folder, unknown);
        return !unknown && space.available < Batch::BYTES ? " (the disk is full)" : "";
    }
    void requireEqual(Batch::Part const& part, std::byte const* one, std::byte const* other) const {
        auto const differs = std::mismatch(one, one + bytesOf(part), other).first;
        if (differs == one + bytesOf(part)) return;
        std::uint64_t const at = part.piece.position + static_cast<std::uint64_t>(differs - one);
        std::uint32_t const size = clip.tracks()[part.piece.track].format.stored_unit_size;
        throw Failure(FAILED, {clip.path(), part.piece.track, at / size}, "the copy differs");
    }

    ClipView const& clip;
    Layout const& layout;
    CopyPlan const& plan;
    Console& console;
};

// --- The command ---

// Throws Failure unless the clip is whole and nobody records into it.
void requireWhole(std::string const& path, bool reachable, Console& console) {
    if (Recorders(path).now() == Recorders::Writer::somebody)
        throw Failure(FAILED, {path}, "somebody is recording into the clip");
    auto const report = inspect::check(kstring(path), {inspect::Level::structure, {}});
    int const condition = conditionOf(report.findings);
    if (condition == FINE || reachable) return;
    for (Json const& finding : findingsJson(report.findings))
        console.error(printable(path) + ": " + findingLine(finding, console));
    throw Failure(condition, {path},
                  condition == DAMAGED
                      ? "the clip is damaged; --reachable copies what can be reached"
                      : "the recording ended without a close: see kelvonclip recover; --reachable leaves out what is "
                        "not in the clip");
}

void requireTracks(ClipView const& clip) {
    if (clip.header().child_clip) throw Failure(FAILED, {clip.path()}, "a child clip has no tracks of its own");
    for (std::size_t number = 0; number < clip.tracks().size(); ++number)
        if (PlayOrder::bytesOf(clip.readable(number)) / clip.readable(number).format.stored_unit_size > UINT32_MAX)
            throw Failure(DAMAGED, {clip.path(), number}, "the track claims more units than there can be");
}

// The copy as it is on the disk, before it gets its name.
void requireWholeCopy(ClipView const& copy, ClipView const& clip, std::string const& name) {
    auto const report = inspect::check(kstring(copy.path()), {inspect::Level::structure, {}});
    bool same = conditionOf(report.findings) == FINE && copy.tracks().size() == clip.tracks().size();
    for (std::size_t number = 0; same && number < clip.tracks().size(); ++number)
        same = copy.readable(number).track->lengthInUnits() == clip.readable(number).track->lengthInUnits();
    if (!same) throw Failure(FAILED, {name}, "the copy is not whole");
}

// Of all files that the clip lies in.
std::uint64_t bytesOnDisk(ClipView const& clip) {
    std::uint64_t bytes = clip.fileBytes();
    std::set<inspect::Layer const*> counted;
    for (TrackView const& view : clip.tracks()) {
        inspect::Layer const& bottom = view.layer->bottom();
        if (bottom.kind == VFileKind::file_name && counted.insert(&bottom).second) bytes += bottom.length;
    }
    return bytes;
}

struct Result {
    std::string path, output;
    bool dry;
    std::uint64_t before;
    CopyPlan plan;

    std::uint64_t won() const { return before - std::min(before, plan.file_bytes); }
    double wonPercent() const {
        return before == 0 ? 0 : 100 * static_cast<double>(won()) / static_cast<double>(before);
    }
};

void show(Result const& result, Console& console) {
    if (console.json())
        return printDocument(console, "compact",
                             {{"path", result.path},
                              {"output", result.dry ? Json(nullptr) : Json(result.output)},
                              {"dry_run", result.dry},
                              {"file_bytes", result.before},
                              {"compact_bytes", result.plan.file_bytes},
                              {"won_bytes", result.won()},
                              {"won_percent", result.wonPercent()},
                              {"far_jumps", result.plan.far_jumps},
                              {"compact_records", result.plan.records}});
    if (console.quiet()) return;
    std::string const name = printable(result.path), will = result.dry ? "would have" : "has";
    console.print(fmt::format("{}: {}; the copy {} {}, {} ({:.2f} %) less\n", name, bytesText(result.before), will,
                              bytesText(result.plan.file_bytes), bytesText(result.won()), result.wonPercent()));
    if (result.plan.far_jumps != 0)
        console.print(fmt::format("{}: playing it jumps {} times by more than 8 MiB; the copy {} none of these\n", name,
                                  result.plan.far_jumps, will));
}

int run(Arguments const& arguments, Console& console) {
    constexpr std::uint64_t ALL = 100, MOST_WASTE = 1;
    std::string const path = arguments.text("CLIP"), output = arguments.text("OUT");
    bool const dry = arguments.has("--dry-run"), force = arguments.has("--force");
    auto const most_waste = arguments.number("--most-waste", ALL).value_or(MOST_WASTE);
    if (!dry && output.empty()) throw usage("OUT is missing; --dry-run says how much would be won");
    if (!output.empty()) {
        requireFree(output, force);
        if (isSameFile(path, output)) throw usage("OUT is the clip itself");
    }
    requireWhole(path, arguments.has("--reachable"), console);
    ClipView const clip(path);
    requireTracks(clip);
    Layout const layout = planLayout(clip);
    Result const result{path, output, dry, bytesOnDisk(clip), planCopy(clip, layout.clip)};
    if (!dry) {
        Copy copy(clip, layout, result.plan, console);
        NewClipFile file(output, force);
        copy.write(file.file(), output);
        file.close();
        {
            ClipView const made(file.workingName());
            requireWholeCopy(made, clip, output);
            if (arguments.has("--compare")) copy.compare(made);
        }
        file.finish();
    }
    show(result, console);
    bool const wasteful = result.wonPercent() > static_cast<double>(most_waste) || result.plan.far_jumps != 0;
    return dry && wasteful ? UNFINISHED : FINE;
}

constexpr auto OPERANDS = std::to_array<Operand>({
    {"CLIP", "a clip that nobody records into"},
    {"OUT", "the clip to be written", 0, 1},
});
constexpr auto OPTIONS = std::to_array<Option>({
    DRY_RUN,
    {"--most-waste", "", "PERCENT", "with --dry-run, end with 4 if more than this share would be won; 1 if not given"},
    {"--compare", "", "", "read the clip and the copy again, and compare them"},
    {"--reachable", "", "", "copy what can be reached of a clip that is damaged or was not finished"},
    FORCE,
});
constexpr auto EXAMPLES = std::to_array<Example>({
    {"kelvonclip compact --dry-run take.clip", "say how much would be won, and write nothing"},
    {"kelvonclip compact --compare take.clip small.clip", "write the copy, and compare it with the clip"},
});

}  // namespace

Command const COMPACT = {
    "compact",
    "copy a clip in the order in which it is played, without waste",
    "Writes a copy in which the units of each frame lie side by side, frame after frame, with the shortest map and "
    "without anything else: no units behind a length, no bytes behind the map, no reserved room. Units, lengths, holes "
    "and trims are those of the clip, and so is the header; units that trims hide are copied too. Tracks that lie in "
    "files of their own, or in other containers than those of a new clip, are brought into the copy, and its header "
    "says so.\n\n"
    "The copy gets its name when it is whole, on the disk and checked. With --dry-run, ends with 4 if the copy would "
    "be smaller by more than --most-waste, or if playing the clip has to jump by more than 8 MiB.",
    OPERANDS,
    OPTIONS,
    EXAMPLES,
    run,
};

}  // namespace tool
