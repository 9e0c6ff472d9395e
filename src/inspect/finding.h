// What the checker and the salvage find: data, to be judged and put into words by programs.
//
// The list is bounded: after `most` findings only their numbers go on being counted, for each kind, so nothing is left
// out silently.
// Threads: plain values; one user at a time.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "foundation/kstring.h"

namespace KelvonClip::inspect {

enum class FindingKind : std::uint8_t {
    // The clip
    header_unreadable,
    header_not_xml,
    header_is_child_clip,
    header_field_missing,
    track_element_incomplete,
    track_format_unknown,
    // Stacks of virtual files
    vfile_not_described,
    file_missing,
    partition_outside_host,
    partitions_overlap,
    // Sparse maps
    superblock_unreadable,
    superblock_magic,
    sparse_length_odd,
    map_block_unreadable,
    map_block_magic,
    map_block_misplaced,
    map_block_not_full,
    map_tail_stale,
    run_unreached,
    record_outside,
    record_overlap,
    record_behind_host,
    map_at_limit,
    bytes_behind_log,
    // Grow containers
    grow_unreadable,
    grow_magic,
    grow_length_outside_host,
    grow_length_odd,
    units_not_stored,
    units_behind_length,
    // Units
    unit_unreadable,
    timecode_break,
    audio_block_invalid,
    audio_wrong_subchannel,
    audio_chain_break,
    audio_fade_misplaced,
    essence_not_recognised,
    // Salvage
    unit_left_out,
    slots_unrecognised,
    log_broken_off,
    older_bytes,
    order_not_known,
    // Both
    budget_exceeded,
};
constexpr std::size_t FINDING_KINDS = static_cast<std::size_t>(FindingKind::budget_exceeded) + 1;

enum class Severity : std::uint8_t {
    note,    // nothing is wrong
    damage,  // something is not as the library writes it; what is said to be reachable is not affected
    loss,    // data cannot be reached
};

struct KindOfFinding {
    FindingKind kind;
    Severity severity;
    char const* name;     // for programs; never changes
    char const* text;     // for people
    char const* counted;  // what `count` counts
};
KindOfFinding const& kindOf(FindingKind kind);

struct Finding {
    FindingKind kind{};
    // Index in the header; absent where the finding concerns the clip or a container that several tracks share.
    std::optional<std::uint32_t> track = std::nullopt;
    std::optional<std::uint64_t> unit = std::nullopt;  // the first unit that is concerned
    std::uint64_t count = 1;
    // The byte of the host file where the structure in question is; absent where it has no place there.
    std::optional<std::uint64_t> offset = std::nullopt;
    KString file = {};    // the host file, if it is not the clip's
    KString detail = {};  // a name or a message that belongs to it

    friend bool operator==(Finding const&, Finding const&) = default;
};

class Findings {
  public:
    explicit Findings(std::size_t most_findings) : most(most_findings) {}

    void add(Finding finding);

    std::vector<Finding> const& list() const { return kept; }
    // All findings of the kind, whether they are in the list or not.
    std::uint64_t number(FindingKind kind) const { return numbers[static_cast<std::size_t>(kind)]; }
    std::uint64_t number() const;
    std::uint64_t leftOut() const { return number() - kept.size(); }
    // The gravest one; absent if there is none.
    std::optional<Severity> worst() const;

  private:
    std::size_t most;
    std::vector<Finding> kept;
    std::array<std::uint64_t, FINDING_KINDS> numbers{};
};

}  // namespace KelvonClip::inspect
