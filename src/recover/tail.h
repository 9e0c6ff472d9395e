// What a recording left in its log behind the lengths and the map that are on the disk.
//
// The log has a place for each unit, in the order of the first writes. From the first unit that no length covers, the
// walk goes from place to place: where the map has records, as they say; behind them, by the rules of the writer
// (LogModel), by the sizes of the tracks' units and by what the bytes themselves say. Where nothing is recognised it
// looks for the next place where something is, and takes what lies between for units that never landed.
//
// What it assumes: each track is written in rising order, from its end on, by one thread at a time. Where the records
// show that a track was not, its units are never certain.
//
// Threads: one user at a time. Reading waits alertably.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <optional>
#include <utility>
#include <vector>

#include "clip/track_format.h"
#include "inspect/essence.h"
#include "inspect/finding.h"
#include "inspect/log_walk.h"
#include "recover/log_model.h"
#include "vfile/aligned_buffer.h"

namespace KelvonClip::recover {

enum class Certainty : std::uint8_t {
    unknown,  // not recognised, damaged, or not written to its end
    likely,   // recognised; its track, its number or its end are not proven
    certain,  // this unit of this track, to its last byte
};

// A place of the log, in bytes of the sparse file's host.
struct Slot {
    std::uint64_t host;
    std::uint64_t unit;
    std::uint32_t track;
    Certainty certainty = Certainty::unknown;
    bool mapped = false;  // a record says where it is
    bool recognised = false;
    bool proven_place = true;      // track and number are proven
    bool chained = false;          // its marks continue those of the unit before it
    bool anchored = false;         // so do all before it, back to the map or to the first beginning of sound
    bool anchored_in_map = false;  // so do all before it, back to the map
    bool plausible = false;        // its marks alone make it a unit of its track
    bool whole = false;            // nothing of it can be missing, whatever was there before
    bool whole_on_zeros = false;   // nothing of it can be missing if zeros were there before
};

struct TailTrack {
    TrackFormat format;
    std::uint64_t partition = 0, partition_length = 0;  // in the sparse file
    std::uint64_t length_units = 0;                     // by its grow header

    std::uint64_t unitSize() const { return format.stored_unit_size; }
    std::uint64_t positionOf(std::uint64_t unit) const;
};

struct TailOptions {
    VideoFrequency frequency{};
    std::uint32_t units_per_record = 1;
    std::uint64_t most_slots = 0;
    // The file was there before the clip was created in it, so any unit may be an older recording's.
    bool file_is_older = false;
};

class Tail {
  public:
    // `area`: the host of the sparse file. `tracks` have valid formats and partitions that do not overlap.
    Tail(VFileObject& area, std::vector<TailTrack> const& tracks, TailOptions const& options,
         inspect::Findings& findings);

    // Walks the log. `walk` has begun. Empty on success; damage is a finding.
    void run(inspect::LogWalk& walk);

    std::vector<Slot> const& slots() const { return found; }
    // Units of a track that the map has within its length or behind it.
    std::uint64_t mappedEnd(std::uint32_t track) const { return states[track].mapped_end; }

  private:
    struct TrackState {
        std::uint64_t next_unit = 0, mapped_end = 0;
        bool in_order = true;                     // the records show no other order than the rising one
        bool anchored = false;                    // the marks go back to the map or to the first beginning
        bool anchored_in_map = false;             // they go back to the map
        bool chain_is_its_own = true;             // they are not those of another track of the same format
        bool number_known = true;                 // nothing is missing whose number is not known
        std::optional<std::uint64_t> chain_unit;  // the unit whose marks are in `audio` or `timecode`
        bool mapped = false;                      // that unit is in the map
        inspect::AudioUnit audio;
        std::optional<std::uint32_t> next_timecode;
    };
    // How well a unit at some place fits a track.
    enum class Fit { none, foreign, weak, marks, chained };
    struct Candidate {
        std::uint32_t track;
        Fit fit;
        std::uint64_t unit;
    };

    void takeRecord(Extent const& extent, inspect::LogWalk const& walk);
    void takeMappedUnit(std::uint32_t track, std::uint64_t unit, std::uint64_t host);
    void loadChain(std::uint32_t track, std::uint64_t unit, inspect::LogWalk const& walk);
    std::optional<std::uint32_t> trackAt(std::uint64_t position) const;

    void walkUnmapped();
    bool step();
    bool hasMarks(inspect::UnitBytes bytes) const;
    bool goOnBehindGap(std::uint64_t from);
    bool takeGap(std::uint64_t from, std::uint64_t to);
    std::optional<std::vector<std::uint32_t>> tracksOfGap(std::uint64_t gap, bool& ambiguous) const;
    std::optional<Candidate> choose(std::uint64_t position, bool after_gap);
    std::optional<std::uint32_t> predicted() const;
    Candidate fitOf(std::uint32_t track, inspect::UnitBytes bytes, bool after_gap) const;
    inspect::UnitBytes unitAt(std::uint64_t position, std::uint64_t size);
    bool mayBeAt(std::uint32_t track, std::uint64_t position);
    Candidate fitAt(std::uint32_t track, std::uint64_t position, bool after_gap);
    std::vector<std::uint32_t> rivalsOf(std::uint32_t track) const;
    void forgetNumbers(std::vector<std::uint32_t> const& of_tracks);
    void take(Candidate const& candidate, std::uint64_t position);
    void addHole(std::uint32_t track, std::uint64_t position);
    bool isOlder(std::uint32_t track, std::uint64_t position);
    void keep(Slot slot);
    void noteMarks(Slot& slot, inspect::UnitBytes bytes);
    void noteTurn(std::uint32_t track);
    void judge();
    bool goesOnBehind(std::uint64_t position);

    VFileObject& area;
    std::vector<TailTrack> const& tracks;
    TailOptions const options;
    inspect::Findings& findings;
    std::uint64_t const host_end;
    std::vector<TrackState> states;
    std::vector<Slot> found;
    std::deque<std::uint32_t> turns;  // the tracks of the last records
    std::optional<LogModel> model;
    std::optional<std::uint32_t> group_track;  // whose units follow, as they got their places together
    std::uint32_t group_left = 0;
    AlignedBuffer buffer;
    std::uint64_t buffered_at = UINT64_MAX, buffered = 0;
    std::vector<std::pair<std::uint64_t, std::uint32_t>> by_partition;  // each with its track
    std::uint64_t end_of_tail = 0;
    std::optional<std::uint64_t> seam;           // where the units of an older recording begin
    std::optional<std::uint64_t> older_between;  // the first place with bytes that may be those of one
    bool full = false;
};

}  // namespace KelvonClip::recover
