#include "recover/salvage.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>
#include <utility>

#include "clip/units_per_record.h"
#include "foundation/kid.h"
#include "inspect/clip_layers.h"
#include "inspect/log_walk.h"
#include "platform/file_birth.h"
#include "platform/host.h"
#include "vfile/aligned_buffer.h"
#include "vfile/vfile_builder.h"
#include "vfile/vfilefile.h"
#include "vfile/vfilegrow.h"
#include "vfile/vfileoffset.h"
#include "vfile/vfilesparse2.h"

namespace KelvonClip::recover {

using inspect::Budget;
using inspect::Layer;
using inspect::LogWalk;
using enum inspect::FindingKind;

namespace {

constexpr std::uint32_t COPY_STEP = 4u << 20;

// The salvage of one clip: what there is, and what is to be put in.
class Salvage {
  public:
    Salvage(std::shared_ptr<VFileObject> file, KString clip_path, SalvageOptions const& salvage_options)
        : clip_file(std::move(file)), path(std::move(clip_path)), options(salvage_options),
          budget(options.limits), report{{}, inspect::Findings(options.limits.findings), {}, {}} {}

    // Finds the units. False, with an error, if the clip cannot be salvaged.
    bool examine();
    void copyTo(std::shared_ptr<VFileObject> const& target);
    void putInPlace();

    SalvageReport take() { return std::move(report); }

  private:
    bool refuse(KString error) {
        report.error = std::move(error);
        return false;
    }
    bool readLayout();
    bool isOlderThan(std::uint64_t creation) const;
    void decide();
    bool wanted(Slot const& slot) const {
        return slot.certainty == Certainty::certain || (options.likely && slot.certainty == Certainty::likely);
    }

    KString copyRecords(VFileObject& sparse);
    KString copyRecord(Extent const& extent, VFileObject& sparse);
    KString copyRange(std::uint64_t from, std::uint64_t length, VFileObject& sparse, std::uint64_t to);
    KString raiseLengths(std::shared_ptr<VFileObject> const& sparse);
    KString makeGrowContainers(std::shared_ptr<VFileObject> const& sparse);

    struct Piece {
        std::uint64_t host, length, start;  // bytes of the area, and of the sparse file
    };
    bool planPieces(std::vector<Piece>& pieces, LogWalk const& named);
    KString compareMap(std::vector<Piece> const& pieces);

    std::shared_ptr<VFileObject> const clip_file;
    KString const path;
    SalvageOptions const options;
    Budget budget;
    SalvageReport report;
    std::shared_ptr<VFileObject> area;
    std::vector<TailTrack> tracks;
    std::uint64_t sparse_length = 0;
    TailOptions tail_options;
    std::uint64_t mapped_log_end = 0;
    std::uint32_t mapped_blocks = 0;
};

// --- What there is ---

bool Salvage::readLayout() {
    inspect::Findings ignored(0);  // the checker's business
    inspect::ClipLayers const clip = readLayers(clip_file, path, budget, ignored);
    if (!clip.header) return refuse("The file has no clip header");
    std::shared_ptr<Layer const> sparse;
    std::vector<std::uint32_t> units_per_day;
    for (auto const& track : clip.tracks) {
        SalvagedTrack salvaged{track.format_name, track.format};
        Layer const* const grow = track.units.get();
        Layer const* const partition = grow != nullptr ? grow->below.get() : nullptr;
        bool const usual = partition != nullptr && grow->kind == VFileKind::grow &&
                           partition->kind == VFileKind::partition && partition->below->kind == VFileKind::sparse2 &&
                           partition->below->below->kind == VFileKind::this_file &&
                           (!sparse || sparse == partition->below);
        if (!usual || !track.format.valid)
            return refuse("The clip has a track that the salvage does not know how to read");
        sparse = partition->below;
        std::uint64_t const room = partition->length - std::min<std::uint64_t>(partition->length, grow->start);
        TailTrack tail{track.format, partition->start, partition->length,
                       std::min(grow->length, room) / track.format.stored_unit_size};
        for (TailTrack const& other : tracks)
            if (tail.partition < other.partition + other.partition_length &&
                other.partition < tail.partition + tail.partition_length)
                return refuse("The clip has tracks that overlap");
        if (!rangeWithin(tail.partition, tail.partition_length, sparse->length))
            return refuse("The clip has a track that its sparse file has no room for");
        tracks.push_back(tail);
        salvaged.length_before = tail.length_units;
        report.tracks.push_back(salvaged);
        units_per_day.push_back(unitsPerDay(clip.standard, track.format.fields_per_unit));
    }
    if (tracks.empty()) return refuse("The clip has no tracks");
    sparse_length = sparse->length;
    area = sparse->below->file;
    tail_options = {clip.header->frequency, unitsPerRecord(units_per_day), options.limits.slots,
                    isOlderThan(clip.header->last_content_edit)};
    return true;
}

// True if the file was there before the clip was created in it.
bool Salvage::isOlderThan(std::uint64_t creation) const {
    constexpr std::uint64_t SLACK = 2;  // some file systems count in steps of two seconds
    auto const birth = platform::birthOfFile(path.toUtf16());
    return birth && *birth + SLACK < creation;
}

bool Salvage::examine() {
    if (!readLayout()) return false;
    LogWalk walk(*area, budget, LogWalk::Runs::found);
    if (KString error = walk.begin(); !error.empty()) return refuse(std::move(error));
    Tail tail(*area, tracks, tail_options, report.findings);
    tail.run(walk);
    mapped_log_end = walk.logEnd();
    mapped_blocks = walk.blockCount();
    if (budget.exceeded()) report.findings.add({.kind = budget_exceeded});
    report.slots = tail.slots();
    // A length covers what the map does not have where the map was lost or never written.
    for (std::uint32_t t = 0; t < tracks.size(); ++t)
        report.tracks[t].length_after = std::min(tracks[t].length_units, tail.mappedEnd(t));
    decide();
    return true;
}

// What is put in, and how long the tracks become.
void Salvage::decide() {
    for (Slot const& slot : report.slots) {
        SalvagedTrack& track = report.tracks[slot.track];
        if (wanted(slot)) track.length_after = std::max(track.length_after, slot.unit + 1);
        if (slot.certainty == Certainty::certain) ++track.certain;
        if (slot.certainty == Certainty::likely) ++track.likely;
    }
    for (Slot const& slot : report.slots) {
        SalvagedTrack& track = report.tracks[slot.track];
        bool const followed = slot.unit < track.length_after;
        if (slot.certainty == Certainty::unknown && followed) ++track.unknown;
        if (wanted(slot) || (!followed && slot.certainty == Certainty::unknown)) continue;
        report.findings.add({.kind = unit_left_out,
                             .track = slot.track,
                             .unit = slot.unit,
                             .offset = slot.host + CLIP_HEADER_SIZE,
                             .detail = slot.certainty == Certainty::likely ? "likely" : "unknown"});
    }
}

// --- Into a copy ---

// Ranges that the disk refuses to read are left out page by page, with a finding.
KString Salvage::copyRange(std::uint64_t from, std::uint64_t length, VFileObject& sparse, std::uint64_t to) {
    constexpr std::uint32_t LEAST = 4096;
    AlignedBuffer buffer(static_cast<std::size_t>(std::min<std::uint64_t>(length, COPY_STEP)));
    for (std::uint64_t done = 0, careful_until = 0; done < length;) {
        std::uint64_t const most = done < careful_until ? LEAST : buffer.size();
        auto const step = static_cast<std::uint32_t>(std::min(length - done, most));
        if (KString error = area->readSync(from + done, step, buffer.data()); error.empty()) {
            if (error = sparse.writeSync(to + done, step, buffer.data()); !error.empty()) return error;
        } else if (step > LEAST) {
            careful_until = done + step;
            continue;
        } else {
            report.findings.add({.kind = unit_unreadable,
                                 .count = step,
                                 .offset = from + done + CLIP_HEADER_SIZE,
                                 .detail = std::move(error)});
        }
        done += step;
    }
    return {};
}

// Copies what the map has: everything within the lengths and outside the tracks, and no unit behind a length, which is
// a matter of the slots.
KString Salvage::copyRecord(Extent const& extent, VFileObject& sparse) {
    std::uint64_t from = extent.start;
    std::uint64_t const end = extent.start + extent.length;
    while (from < end) {
        std::uint64_t to = end;
        bool copied = true;
        for (TailTrack const& track : tracks) {
            std::uint64_t const units_end = track.positionOf(track.length_units);
            std::uint64_t const partition_end = track.partition + track.partition_length;
            std::uint64_t const header_end = track.positionOf(0);
            if (from < track.partition) {
                to = std::min(to, track.partition);
            } else if (from < header_end) {
                to = std::min(to, header_end);
                copied = false;  // the new container has its own
            } else if (from < units_end) {
                to = std::min(to, units_end);
            } else if (from < partition_end) {
                to = std::min(to, partition_end);
                copied = false;
            }
        }
        if (copied) {
            KString error = copyRange(extent.host + (from - extent.start), to - from, sparse, from);
            if (!error.empty()) return error;
        }
        from = to;
    }
    return {};
}

KString Salvage::copyRecords(VFileObject& sparse) {
    Budget again(options.limits);
    LogWalk walk(*area, again, LogWalk::Runs::found);
    if (KString error = walk.begin(); !error.empty()) return error;
    while (auto const step = walk.next())
        if (step->kind == LogWalk::Step::record)
            if (KString error = copyRecord(step->extent, sparse); !error.empty()) return error;
    return {};
}

KString Salvage::makeGrowContainers(std::shared_ptr<VFileObject> const& sparse) {
    for (TailTrack const& track : tracks) {
        auto const partition = buildPartition(sparse, track.partition, track.partition_length);
        if (!partition.error.empty()) return partition.error;
        if (KString error = VFileGrow::create(partition.file); !error.empty()) return error;
    }
    return {};
}

// Writes the last unit of each track again, through its grow container: that raises the length.
KString Salvage::raiseLengths(std::shared_ptr<VFileObject> const& sparse) {
    std::vector<std::shared_ptr<VFileObject>> grows;
    for (std::size_t t = 0; t < tracks.size(); ++t) {
        TailTrack const& track = tracks[t];
        auto const partition = buildPartition(sparse, track.partition, track.partition_length);
        if (!partition.error.empty()) return partition.error;
        auto const grow = VFileGrow::open(partition.file, false);
        if (!grow.error.empty()) return grow.error;
        grows.push_back(grow.file);
        std::uint64_t const units = report.tracks[t].length_after;
        if (units == 0 || units * track.unitSize() <= grow.file->length()) continue;
        auto const size = static_cast<std::uint32_t>(track.unitSize());
        AlignedBuffer unit(size);
        if (KString error = sparse->readSync(track.positionOf(units - 1), size, unit.data()); !error.empty())
            return error;
        if (KString error = grow.file->writeSync((units - 1) * size, size, unit.data()); !error.empty()) return error;
    }
    std::vector<VFileObject*> stacks;
    stacks.reserve(grows.size());
    for (auto const& grow : grows)
        stacks.push_back(grow.get());
    return writeBackAll(stacks, Durability::power_loss);
}

void Salvage::copyTo(std::shared_ptr<VFileObject> const& target) {
    auto const header = std::make_unique_for_overwrite<ClipHeaderArea>();
    auto const work = [&]() -> KString {
        if (KString error = clip_file->readSync(0, CLIP_HEADER_SIZE, header->bytes.data()); !error.empty())
            return error;
        if (KString error = target->writeSync(0, CLIP_HEADER_SIZE, header->bytes.data()); !error.empty()) return error;
        auto const target_area = VFileOffset::section(target, CLIP_HEADER_SIZE);
        if (!target_area.error.empty()) return target_area.error;
        if (KString error = VFileSparse2::create(target_area.file, sparse_length); !error.empty()) return error;
        auto const sparse = VFileSparse2::open(target_area.file, false);
        if (!sparse.error.empty()) return sparse.error;
        if (KString error = makeGrowContainers(sparse.file); !error.empty()) return error;
        if (KString error = copyRecords(*sparse.file); !error.empty()) return error;
        for (Slot const& slot : report.slots) {
            if (!wanted(slot)) continue;
            TailTrack const& track = tracks[slot.track];
            KString error = copyRange(slot.host, track.unitSize(), *sparse.file, track.positionOf(slot.unit));
            if (!error.empty()) return error;
        }
        return raiseLengths(sparse.file);
    };
    report.error = work();
}

// --- In place ---

// What has to be written so that the log has a record for each place up to the last unit that is wanted. Places that
// are left out get records where no reader looks: at the far end of the largest partition.
bool Salvage::planPieces(std::vector<Piece>& pieces, LogWalk const& named) {
    std::size_t last = 0;
    for (std::size_t i = 0; i < report.slots.size(); ++i) {
        Slot const& slot = report.slots[i];
        bool const shows = slot.mapped && !wanted(slot) && slot.unit < report.tracks[slot.track].length_after;
        if (shows) return refuse("A unit that is left out would show: salvage to a copy");
        if (!slot.mapped && wanted(slot)) last = i + 1;
    }
    auto const& filler = *std::ranges::max_element(tracks, {}, &TailTrack::partition_length);
    auto const filler_track = static_cast<std::size_t>(&filler - tracks.data());
    std::uint64_t filler_end = (filler.partition + filler.partition_length) / SECTOR_SIZE * SECTOR_SIZE;
    std::uint64_t const filler_floor = filler.positionOf(report.tracks[filler_track].length_after + 1);
    LogModel model(named);
    // Records that are on the disk are not extended, and so the model begins like the log does.
    auto const add = [&](std::uint64_t host, std::uint64_t length, std::optional<std::uint64_t> start) {
        if (!start) {
            if (filler_end < filler_floor || filler_end - filler_floor < length) return false;
            start = filler_end -= length;
        }
        if (model.placeOf(*start) != host || host % SECTOR_SIZE != 0) return false;
        if (named.map().atOrAfter(*start) && named.map().atOrAfter(*start)->start < *start + length) return false;
        model.take(*start, length);
        pieces.push_back({host, length, *start});
        return true;
    };
    for (std::size_t i = 0; i < last; ++i) {
        Slot const& slot = report.slots[i];
        if (slot.mapped) continue;
        std::uint64_t const length = tracks[slot.track].unitSize();
        std::uint64_t const start = tracks[slot.track].positionOf(slot.unit);
        // What lies between the places is no unit. Room for map blocks comes by itself.
        std::uint64_t const next = model.placeOf(wanted(slot) ? start : UINT64_MAX);
        bool fits = true;
        if (next < slot.host) fits = add(next, slot.host - next, std::nullopt);
        fits = fits && add(slot.host, length, wanted(slot) ? std::optional(start) : std::nullopt);
        if (!fits) return refuse("The log cannot be continued in place: salvage to a copy");
    }
    return true;
}

KString Salvage::compareMap(std::vector<Piece> const& pieces) {
    Budget again(options.limits);
    LogWalk walk(*area, again);
    if (KString error = walk.begin(); !error.empty()) return error;
    while (walk.next()) {
    }
    for (Piece const& piece : pieces) {
        auto const extent = walk.map().atOrAfter(piece.start);
        bool const same = extent && extent->start <= piece.start &&
                          extent->host + (piece.start - extent->start) == piece.host &&
                          extent->length - (piece.start - extent->start) >= piece.length;
        if (!same) return "The log put a unit elsewhere than where it is";
    }
    return {};
}

void Salvage::putInPlace() {
    Budget again(options.limits);
    LogWalk named(*area, again);
    if (KString error = named.begin(); !error.empty()) return static_cast<void>(refuse(std::move(error)));
    while (named.next()) {
    }
    if (named.blockCount() != mapped_blocks)
        return static_cast<void>(refuse("The map has blocks that no superblock names: salvage to a copy"));
    std::vector<Piece> pieces;
    if (!planPieces(pieces, named)) return;

    auto const work = [&]() -> KString {
        auto const own_area = VFileOffset::section(clip_file, CLIP_HEADER_SIZE);
        if (!own_area.error.empty()) return own_area.error;
        auto const sparse = VFileSparse2::open(own_area.file, false);
        if (!sparse.error.empty()) return sparse.error;
        // The bytes are written over themselves: that gives them their records.
        for (Piece const& piece : pieces)
            if (KString error = copyRange(piece.host, piece.length, *sparse.file, piece.start); !error.empty())
                return error;
        if (KString error = sparse.file->writeBack(Durability::power_loss); !error.empty()) return error;
        if (KString error = compareMap(pieces); !error.empty()) return error;
        return raiseLengths(sparse.file);
    };
    report.error = work();
}

SalvageReport failed(KString error, SalvageOptions const& options) {
    return {std::move(error), inspect::Findings(options.limits.findings), {}, {}};
}

KString openError(Opened<VFileFile> const& opened) {
    return opened.error.empty() ? KString("Internal error") : opened.error;
}

}  // namespace

SalvageReport examine(std::shared_ptr<VFileObject> const& clip_file, KString const& path,
                      SalvageOptions const& options) {
    Salvage salvage(clip_file, path, options);
    salvage.examine();
    return salvage.take();
}

SalvageReport examine(KString const& path, SalvageOptions const& options) {
    auto const opened = VFileFile::open(path, true);
    if (!opened.file) return failed(openError(opened), options);
    return examine(opened.file, path, options);
}

SalvageReport salvageToCopy(std::shared_ptr<VFileObject> const& clip_file, KString const& path,
                            std::shared_ptr<VFileObject> const& copy, SalvageOptions const& options) {
    Salvage salvage(clip_file, path, options);
    if (salvage.examine()) salvage.copyTo(copy);
    return salvage.take();
}

SalvageReport salvageToCopy(KString const& path, KString const& copy_path, SalvageOptions const& options) {
    auto const opened = VFileFile::open(path, true);
    if (!opened.file) return failed(openError(opened), options);
    if (VFileFile::open(copy_path, true).file) return failed("The copy's name is taken", options);
    KString const working_name = copy_path + KString(".") + KID::create().toText();
    auto target = VFileFile::create(working_name);
    if (!target.file) return failed(openError(target), options);
    SalvageReport report = salvageToCopy(opened.file, path, target.file, options);
    target.file.reset();  // closed
    if (report.error.empty() && !platform::renameToNewName(working_name.toUtf16(), copy_path.toUtf16()))
        report.error = KString(platform::lastErrorText());
    if (!report.error.empty()) {
        platform::removeFile(working_name.toUtf16());
        return report;
    }
    auto const renamed = VFileFile::open(copy_path, false);
    if (!renamed.file)
        report.error = openError(renamed);
    else
        report.error = renamed.file->flushName();
    return report;
}

SalvageReport salvageInPlace(std::shared_ptr<VFileObject> const& clip_file, KString const& path,
                             SalvageOptions const& options) {
    Salvage salvage(clip_file, path, options);
    if (salvage.examine()) salvage.putInPlace();
    return salvage.take();
}

SalvageReport salvageInPlace(KString const& path, SalvageOptions const& options) {
    if (openHostFiles().isTaken(path)) return failed("The clip is open", options);
    auto const opened = VFileFile::open(path, false);
    if (!opened.file) return failed(openError(opened), options);
    return salvageInPlace(opened.file, path, options);
}

}  // namespace KelvonClip::recover
