#include "inspect/clip_layers.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <optional>
#include <tuple>
#include <utility>

#include "foundation/load_store.h"
#include "inspect/chain_walk.h"
#include "inspect/log_walk.h"
#include "vfile/aligned_buffer.h"
#include "vfile/grow_format.h"
#include "vfile/vfilefile.h"
#include "vfile/vfilelimit.h"
#include "vfile/vfileoffset.h"

namespace KelvonClip::inspect {

namespace {

using enum FindingKind;

class LayerBuilder {
  public:
    LayerBuilder(std::shared_ptr<VFileObject> const& file, KString const& clip_path, Budget& walk_budget, Findings& to)
        : clip_file(file), path(clip_path), budget(walk_budget), findings(to) {}

    // The stack that a "VFile" element describes; null, with a finding, if it cannot be built.
    std::shared_ptr<Layer const> build(XmlNode vfile, std::uint32_t track_number) {
        track = track_number;
        std::vector<VFileLevel> levels;
        VFileLevel level = vfileLevel(vfile);
        for (; level.kind != VFileKind::none && !level.isBottom(); level = level.below())
            levels.push_back(level);
        std::shared_ptr<Layer const> built = bottom(level);
        for (; built && !levels.empty(); levels.pop_back())
            built = above(levels.back(), std::move(built));
        return built;
    }

  private:
    std::shared_ptr<Layer const> bottom(VFileLevel const& level) {
        if (level.kind == VFileKind::none) return refused({.kind = vfile_not_described, .track = track});
        Layer wanted;
        wanted.kind = level.kind;
        if (level.kind == VFileKind::this_file)
            wanted.start = CLIP_HEADER_SIZE;
        else
            wanted.path = hostFileName(path, level.element.text());
        if (auto known = find(wanted)) return *known;
        if (level.kind == VFileKind::this_file) {
            wanted.file = std::make_shared<VFileOffset>(clip_file, wanted.start);
        } else {
            auto opened = VFileFile::open(wanted.path, true);
            if (!opened.file) {
                findings.add({.kind = file_missing, .track = track, .file = wanted.path, .detail = opened.error});
                return keep(std::move(wanted), false);
            }
            wanted.file = std::move(opened.file);
        }
        wanted.length = wanted.file->length();
        return keep(std::move(wanted), true);
    }

    std::shared_ptr<Layer const> above(VFileLevel const& level, std::shared_ptr<Layer const> below) {
        Layer wanted;
        wanted.kind = level.kind;
        wanted.below = std::move(below);
        if (level.kind == VFileKind::partition) {
            auto const start = level.number("Start"), length = level.number("Length");
            if (!start || !length) return refused({.kind = vfile_not_described, .track = track});
            wanted.start = *start;
            wanted.length = *length;
        }
        if (level.kind == VFileKind::grow) wanted.start = grow::HEADER_SIZE;
        if (auto known = find(wanted)) {
            if (*known && level.kind == VFileKind::partition) noteOverlap(wanted, **known);
            return *known;
        }
        switch (level.kind) {
        case VFileKind::partition:
            return partition(std::move(wanted));
        case VFileKind::grow:
            return grow(std::move(wanted));
        case VFileKind::sparse1:
            return sparse1(std::move(wanted));
        case VFileKind::sparse2:
            return sparse2(std::move(wanted));
        default:
            return nullptr;
        }
    }

    std::shared_ptr<Layer const> partition(Layer wanted) {
        Layer const& host = *wanted.below;
        if (!rangeWithin(wanted.start, wanted.length, host.length)) {
            std::uint64_t const inside = host.length - std::min(wanted.start, host.length);
            add({.kind = partition_outside_host,
                 .track = track,
                 .count = wanted.length - std::min(wanted.length, inside)},
                host, wanted.start);
        }
        for (auto const& other : layers)
            if (other->kind == VFileKind::partition && other->below == wanted.below) noteOverlap(wanted, *other);
        wanted.file =
            std::make_shared<VFileLimit>(std::make_shared<VFileOffset>(host.file, wanted.start), wanted.length);
        return keep(std::move(wanted), true);
    }

    void noteOverlap(Layer const& one, Layer const& other) {
        std::uint64_t const from = std::max(one.start, other.start);
        auto const end = [](Layer const& section) {
            return section.start + std::min(section.length, UINT64_MAX - section.start);
        };
        std::uint64_t const to = std::min(end(one), end(other));
        if (from < to) add({.kind = partitions_overlap, .track = track, .count = to - from}, *one.below, from);
    }

    std::shared_ptr<Layer const> grow(Layer wanted) {
        Layer const& host = *wanted.below;
        AlignedBuffer block(grow::HEADER_SIZE);
        if (KString error = host.file->readSync(0, grow::HEADER_SIZE, block.data()); !error.empty()) {
            add({.kind = grow_unreadable, .track = track, .detail = std::move(error)}, host, 0);
            return keep(std::move(wanted), false);
        }
        if (std::memcmp(block.data(), grow::MAGIC.data(), grow::MAGIC.size()) != 0) {
            add({.kind = grow_magic, .track = track}, host, 0);
            return keep(std::move(wanted), false);
        }
        wanted.length = loadBE64(block.data() + grow::LENGTH_AT);
        std::uint64_t const room = host.length - std::min<std::uint64_t>(grow::HEADER_SIZE, host.length);
        if (wanted.length > room)
            add({.kind = grow_length_outside_host, .track = track, .count = wanted.length - room}, host,
                grow::LENGTH_AT);
        wanted.file = std::make_shared<VFileOffset>(host.file, grow::HEADER_SIZE);
        return keep(std::move(wanted), true);
    }

    std::shared_ptr<Layer const> sparse1(Layer wanted) {
        Layer const& host = *wanted.below;
        ChainWalk walk(*host.file, budget);
        if (!beganWell(walk.run(), host)) return keep(std::move(wanted), false);
        wanted.length = walk.fileLength();
        wanted.map = walk.takeMap();
        using End = ChainWalk::End;
        wanted.map_is_known = walk.end() != End::unreadable_block;
        static constexpr auto ENDS = std::to_array<std::pair<End, FindingKind>>({
            {End::misplaced_block, map_block_misplaced},
            {End::unreadable_block, map_block_unreadable},
            {End::missing_block, map_block_magic},
            {End::record_outside, record_outside},
            {End::record_overlap, record_overlap},
            {End::budget, budget_exceeded},
        });
        for (auto const& [end, kind] : ENDS)
            if (walk.end() == end) add({.kind = kind}, host, walk.endAt());
        finishSparse(wanted, walk.dataEnd(), walk.dataEnd());
        return keepSparse(std::move(wanted));
    }

    std::shared_ptr<Layer const> sparse2(Layer wanted) {
        Layer const& host = *wanted.below;
        LogWalk walk(*host.file, budget);
        if (!beganWell(walk.begin(), host)) return keep(std::move(wanted), false);
        wanted.length = walk.fileLength();
        std::optional<LogWalk::Step> last_block;
        while (auto const step = walk.next()) {
            if (step->kind != LogWalk::Step::block_end) continue;
            if (last_block && last_block->records < sparse2::map_block::MAX_RECORDS)
                add({.kind = map_block_not_full, .count = last_block->records}, host, last_block->at);
            if (step->stale != 0) add({.kind = map_tail_stale, .count = step->stale}, host, step->stale_from);
            last_block = *step;
        }
        noteEnd(walk, host);
        if (auto const unreached = walk.unreachedRuns(); unreached)
            add({.kind = run_unreached, .count = unreached->count}, host,
                sparse2::super_block::RUN_TABLE_AT + unreached->first * sparse2::super_block::RUN_ENTRY_SIZE);
        wanted.map = walk.takeMap();
        wanted.map_is_known = walk.end() != LogWalk::End::unreadable_block;
        // The log may end with room for map blocks, of which nothing is written yet.
        auto const& last = walk.lastExtent();
        finishSparse(wanted, last ? last->host + last->length : 0, walk.logEnd());
        return keepSparse(std::move(wanted));
    }

    void noteEnd(LogWalk const& walk, Layer const& host) {
        using End = LogWalk::End;
        // Nothing was ever promised to be behind a block that is not full.
        bool const full = walk.recordCount() == sparse2::map_block::MAX_RECORDS;
        static constexpr auto ENDS = std::to_array<std::tuple<End, FindingKind, bool>>({
            {End::unreadable_block, map_block_unreadable, false},
            {End::missing_block, map_block_magic, true},
            {End::misplaced_block, map_block_misplaced, false},
            {End::record_outside, record_outside, false},
            {End::record_overlap, record_overlap, false},
            {End::most_blocks, map_at_limit, false},
            {End::budget, budget_exceeded, false},
        });
        for (auto const& [end, kind, only_if_full] : ENDS)
            if (walk.end() == end && (full || !only_if_full || walk.blockCount() == 0))
                add({.kind = kind}, host, walk.endAt());
    }

    bool beganWell(KString const& error, Layer const& host) {
        if (error.empty()) return true;
        bool const other_magic =
            error == KString("Bad superblock") || error == KString("Bad sparse header magic number");
        add({.kind = other_magic ? superblock_magic : superblock_unreadable, .detail = error}, host, 0);
        return false;
    }

    // What both formats have: the length, and the host that may end before the data does.
    void finishSparse(Layer const& sparse, std::uint64_t data_end, std::uint64_t log_end) {
        Layer const& host = *sparse.below;
        if (sparse.length % SECTOR_SIZE != 0)
            add({.kind = sparse_length_odd, .count = sparse.length % SECTOR_SIZE}, host, 8);
        if (data_end > host.length)
            add({.kind = record_behind_host, .count = data_end - host.length}, host, host.length);
        else if (log_end < host.length)
            add({.kind = bytes_behind_log, .count = host.length - log_end}, host, log_end);
    }

    std::shared_ptr<Layer const> keepSparse(Layer wanted) {
        budget.keepMap(wanted.map.memoryBytes());
        auto layer = std::make_shared<Layer>(std::move(wanted));
        std::shared_ptr<Layer const> read = layer;
        layer->file = sparseView(read->below->file, read);
        layers.push_back(read);
        usable.push_back(true);
        return read;
    }

    std::shared_ptr<Layer const> keep(Layer layer, bool is_usable) {
        layers.push_back(std::make_shared<Layer const>(std::move(layer)));
        usable.push_back(is_usable);
        return is_usable ? layers.back() : nullptr;
    }
    // A level that was built before, or null if that failed before.
    std::optional<std::shared_ptr<Layer const>> find(Layer const& wanted) const {
        for (std::size_t i = 0; i < layers.size(); ++i) {
            Layer const& known = *layers[i];
            bool const by_range = wanted.kind != VFileKind::partition || known.length == wanted.length;
            if (known.kind == wanted.kind && known.below == wanted.below && known.start == wanted.start &&
                known.path == wanted.path && by_range)
                return usable[i] ? layers[i] : nullptr;
        }
        return std::nullopt;
    }

    std::shared_ptr<Layer const> refused(Finding finding) {
        findings.add(std::move(finding));
        return nullptr;
    }
    // Adds a finding about a byte of a level.
    void add(Finding finding, Layer const& level, std::uint64_t position) {
        finding.offset = level.hostByte(position);
        finding.file = level.bottom().path;
        findings.add(std::move(finding));
    }

    std::shared_ptr<VFileObject> const& clip_file;
    KString const& path;
    Budget& budget;
    Findings& findings;
    std::uint32_t track = 0;
    std::vector<std::shared_ptr<Layer const>> layers;
    std::vector<bool> usable;
};

// What the library writes into every header, beside the standard and the tracks without which it is none.
constexpr auto HEADER_ELEMENTS =
    std::to_array<char const*>({"UUID", "ClipLastContentEdited", "ClipLastMetaEdited", "TimecodeSource"});

std::shared_ptr<MetaObject const> readHeader(VFileObject& file, Findings& findings) {
    HeaderRead read = readClipHeader(file);
    if (read.meta && read.meta->child_clip) {
        findings.add({.kind = header_is_child_clip, .offset = 0});
        return nullptr;
    }
    if (!read.meta) {
        bool const text = read.error == KString("XML parsing error in clip header");
        findings.add({.kind = text ? header_not_xml : header_unreadable, .offset = 0, .detail = std::move(read.error)});
        return nullptr;
    }
    for (char const* name : HEADER_ELEMENTS)
        if (read.meta->tree.root().child(name).invalid())
            findings.add({.kind = header_field_missing, .offset = 0, .detail = name});
    return read.meta;
}

}  // namespace

ClipLayers readLayers(std::shared_ptr<VFileObject> const& clip_file, KString const& path, Budget& budget,
                      Findings& findings) {
    // Header and containers lie at the beginning: most of what is read of them is in one piece.
    VFileFile::ReadAhead const front(*clip_file, 0);
    ClipLayers clip;
    clip.header = readHeader(*clip_file, findings);
    if (!clip.header) return clip;
    clip.standard = toVideoStandard(clip.header->resolution, clip.header->frequency);
    LayerBuilder builder(clip_file, path, budget, findings);
    for (XmlNode const meta : clip.header->track_meta) {
        auto const number = static_cast<std::uint32_t>(clip.tracks.size());
        TrackLayers track;
        XmlNode const type = meta.child("TrackType"), vfile = meta.child("VFile");
        if (type.invalid() || vfile.invalid()) {
            findings.add({.kind = track_element_incomplete, .track = number, .offset = 0});
        } else {
            track.format_name = type.text();
            track.format = describeTrackFormat(track.format_name, clip.standard);
            if (!track.format.valid)
                findings.add({.kind = track_format_unknown, .track = number, .offset = 0, .detail = track.format_name});
            track.units = builder.build(vfile, number);
        }
        clip.tracks.push_back(std::move(track));
    }
    return clip;
}

}  // namespace KelvonClip::inspect
