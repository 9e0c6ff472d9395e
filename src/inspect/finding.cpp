#include "inspect/finding.h"

#include <algorithm>
#include <numeric>
#include <utility>

namespace KelvonClip::inspect {

namespace {

using enum FindingKind;
using enum Severity;

// In the order of the kinds.
constexpr auto KINDS = std::to_array<KindOfFinding>({
    {header_unreadable, loss, "header-unreadable", "The header cannot be read", "headers"},
    {header_not_xml, loss, "header-not-xml", "The header is not a clip header", "headers"},
    {header_is_child_clip, note, "header-is-child-clip", "The file is a child clip, which has no tracks", "headers"},
    {header_field_missing, damage, "header-field-missing", "The header lacks an element", "elements"},
    {track_element_incomplete, loss, "track-element-incomplete", "The header describes a track incompletely", "tracks"},
    {track_format_unknown, damage, "track-format-unknown", "The track's format is unknown at the clip's standard",
     "tracks"},
    {vfile_not_described, loss, "vfile-not-described", "The header does not say where the track is", "tracks"},
    {file_missing, loss, "file-missing", "A file that the header names cannot be opened", "files"},
    {partition_outside_host, damage, "partition-outside-host", "A partition reaches past the end of its file", "bytes"},
    {partitions_overlap, damage, "partitions-overlap", "Partitions of two tracks overlap", "bytes"},
    {superblock_unreadable, loss, "superblock-unreadable", "The superblock of a sparse file cannot be read", "blocks"},
    {superblock_magic, loss, "superblock-magic", "A sparse file does not begin with its magic number", "blocks"},
    {sparse_length_odd, damage, "sparse-length-odd", "The length of a sparse file is not a number of sectors", "bytes"},
    {map_block_unreadable, loss, "map-block-unreadable", "A map block cannot be read", "blocks"},
    {map_block_magic, loss, "map-block-magic", "A map block that the map refers to is not there", "blocks"},
    {map_block_misplaced, loss, "map-block-misplaced", "Map blocks are not where the log has them", "blocks"},
    {map_block_not_full, damage, "map-block-not-full", "A map block is not full, although another one follows",
     "records"},
    {map_tail_stale, damage, "map-tail-stale", "A map block holds data after its last record", "bytes"},
    {run_unreached, damage, "run-unreached", "The superblock names map blocks that the log does not reach", "runs"},
    {record_outside, loss, "record-outside", "A record reaches past the length of its sparse file", "records"},
    {record_overlap, loss, "record-overlap", "A record overlaps an earlier one", "records"},
    {record_behind_host, loss, "record-behind-host", "Data that the map refers to is past the end of the file",
     "bytes"},
    {map_at_limit, damage, "map-at-limit", "The map has as many blocks as a reader takes in", "blocks"},
    {bytes_behind_log, note, "bytes-behind-log", "The file goes on behind the end of the log", "bytes"},
    {grow_unreadable, loss, "grow-unreadable", "The header of a grow container cannot be read", "headers"},
    {grow_magic, loss, "grow-magic", "A grow container does not begin with its magic number", "headers"},
    {grow_length_outside_host, loss, "grow-length-outside-host",
     "A grow container is longer than its file has room for", "bytes"},
    {grow_length_odd, damage, "grow-length-odd", "A grow container ends inside a unit", "bytes"},
    {units_not_stored, loss, "units-not-stored", "Units within the track's length are not stored", "units"},
    {units_behind_length, note, "units-behind-length", "Units are stored behind the track's length", "units"},
    {unit_unreadable, loss, "unit-unreadable", "A stored unit cannot be read", "units"},
    {timecode_break, note, "timecode-break", "The timecode does not count on", "units"},
    {audio_block_invalid, loss, "audio-block-invalid", "Audio blocks are invalid and count as silence", "blocks"},
    {audio_wrong_subchannel, damage, "audio-wrong-subchannel", "An audio block names another subchannel", "blocks"},
    {audio_chain_break, damage, "audio-chain-break", "Audio blocks do not continue their recording", "blocks"},
    {audio_fade_misplaced, damage, "audio-fade-misplaced", "A recording goes on after its fade-out", "blocks"},
    {essence_not_recognised, damage, "essence-not-recognised", "A unit does not begin as its format does", "units"},
    {unit_left_out, loss, "unit-left-out", "A unit in the log was left out", "units"},
    {slots_unrecognised, loss, "slots-unrecognised", "A part of the log holds nothing that could be recognised",
     "bytes"},
    {log_broken_off, note, "log-broken-off", "Behind the last unit there is more that belongs to no unit", "bytes"},
    {older_bytes, note, "older-bytes", "Bytes of an older file lie behind the end of the recording", "bytes"},
    {order_not_known, note, "order-not-known", "The numbers of a track's units do not follow from their order",
     "tracks"},
    {budget_exceeded, damage, "budget-exceeded", "Not everything was looked at: a limit was reached", "limits"},
});
static_assert(KINDS.size() == FINDING_KINDS, "a row for each kind");
static_assert(std::ranges::is_sorted(KINDS, {}, &KindOfFinding::kind));

}  // namespace

KindOfFinding const& kindOf(FindingKind kind) { return KINDS.at(static_cast<std::size_t>(kind)); }

void Findings::add(Finding finding) {
    ++numbers[static_cast<std::size_t>(finding.kind)];
    if (kept.size() < most) kept.push_back(std::move(finding));
}

std::uint64_t Findings::number() const { return std::accumulate(numbers.begin(), numbers.end(), std::uint64_t{0}); }

std::optional<Severity> Findings::worst() const {
    std::optional<Severity> gravest;
    for (KindOfFinding const& row : KINDS)
        if (number(row.kind) != 0 && (!gravest || row.severity > *gravest)) gravest = row.severity;
    return gravest;
}

}  // namespace KelvonClip::inspect
