#include "recover/tail.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <numeric>
#include <span>
#include <utility>

#include "foundation/load_store.h"
#include "foundation/zeros.h"
#include "vfile/grow_format.h"
#include "vfile/sectors.h"

namespace KelvonClip::recover {

using inspect::AudioUnit;
using inspect::LogWalk;
using inspect::UnitBytes;
using enum inspect::FindingKind;

namespace {

// How far to look for the next unit where nothing is recognised, beside two units of each track.
constexpr std::uint64_t LOOK_AHEAD = 16u << 20;
constexpr std::uint64_t SCAN_STEP = 1u << 20;
constexpr std::size_t TURNS_KEPT = 1024;
// Units missing between two audio units whose words say so.
constexpr std::uint32_t MOST_MISSING = 100000;

std::uint64_t largestUnit(std::vector<TailTrack> const& tracks) {
    std::uint64_t largest = SECTOR_SIZE;
    for (TailTrack const& track : tracks)
        largest = std::max(largest, track.unitSize());
    return largest;
}

// Reads what can be read; pages that cannot are zero.
void readPages(VFileObject& file, std::uint64_t position, std::span<std::byte> buffer) {
    if (file.readSync(position, static_cast<std::uint32_t>(buffer.size()), buffer.data()).empty()) return;
    for (std::size_t at = 0; at < buffer.size(); at += inspect::PAGE) {
        auto const page = buffer.subspan(at, std::min<std::size_t>(inspect::PAGE, buffer.size() - at));
        if (!file.readSync(position + at, static_cast<std::uint32_t>(page.size()), page.data()).empty())
            std::ranges::fill(page, std::byte{0});
    }
}

// The number of units between two audio units of one recording, if the words of all blocks agree on it.
std::optional<std::uint32_t> unitsBetween(AudioUnit const& before, AudioUnit const& now, VideoFrequency frequency) {
    if (!before.complete() || !now.complete() || before.count != now.count) return std::nullopt;
    std::uint32_t const step = now.blocks[0]->block_word - before.blocks[0]->block_word;
    if (step == 0 || step > MOST_MISSING) return std::nullopt;
    bool const phased = hemlock::cadenceOf(frequency).phased;
    for (std::uint32_t i = 0; i < now.count; ++i) {
        if (now.blocks[i]->block_word - before.blocks[i]->block_word != step) return std::nullopt;
        std::uint32_t const phase = phased ? (before.blocks[i]->phase + step) % hemlock::PHASES : 0;
        if (now.blocks[i]->phase != phase) return std::nullopt;
    }
    return step - 1;
}

}  // namespace

std::uint64_t TailTrack::positionOf(std::uint64_t unit) const {
    return partition + grow::HEADER_SIZE + unit * unitSize();
}

Tail::Tail(VFileObject& sparse_host, std::vector<TailTrack> const& clip_tracks, TailOptions const& tail_options,
           inspect::Findings& to)
    : area(sparse_host), tracks(clip_tracks), options(tail_options), findings(to), host_end(sparse_host.length()),
      states(clip_tracks.size()), buffer(static_cast<std::size_t>(std::max(largestUnit(clip_tracks), SCAN_STEP))) {
    for (std::uint32_t t = 0; t < tracks.size(); ++t)
        by_partition.emplace_back(tracks[t].partition, t);
    std::ranges::sort(by_partition);
}

void Tail::run(LogWalk& walk) {
    while (auto const step = walk.next())
        if (step->kind == LogWalk::Step::record) takeRecord(step->extent, walk);
    end_of_tail = walk.logEnd();
    // Behind a block that cannot be read, or records that no reader takes, nobody knows what the log has.
    using End = LogWalk::End;
    bool const goes_on =
        walk.end() == End::no_more_runs || walk.end() == End::unwritten_block || walk.end() == End::missing_block;
    for (std::uint32_t t = 0; t < tracks.size(); ++t) {
        TrackState& state = states[t];
        state.next_unit = std::max(state.mapped_end, state.next_unit);
        if (!state.in_order) findings.add({.kind = order_not_known, .track = t});
        if (state.chain_unit != state.next_unit - 1 && state.next_unit > 0) loadChain(t, state.next_unit - 1, walk);
    }
    model.emplace(walk);
    if (goes_on && !full) walkUnmapped();
    judge();
}

// --- What the map has ---

std::optional<std::uint32_t> Tail::trackAt(std::uint64_t position) const {
    auto const after =
        std::ranges::upper_bound(by_partition, position, {}, &std::pair<std::uint64_t, std::uint32_t>::first);
    if (after == by_partition.begin()) return std::nullopt;
    std::uint32_t const track = std::prev(after)->second;
    bool const inside = position - tracks[track].partition < tracks[track].partition_length;
    return inside ? std::optional(track) : std::nullopt;
}

void Tail::takeRecord(Extent const& extent, LogWalk const& walk) {
    auto const number = trackAt(extent.start);
    if (!number) return;
    TailTrack const& track = tracks[*number];
    TrackState& state = states[*number];
    std::uint64_t const within = extent.start - track.partition;
    if (within < grow::HEADER_SIZE) return;
    std::uint64_t const offset = within - grow::HEADER_SIZE, size = track.unitSize();
    if (offset % size != 0 || extent.length % size != 0) {
        state.in_order = false;  // not written unit by unit
        state.mapped_end = std::max(state.mapped_end, (offset + extent.length) / size);
        return;
    }
    noteTurn(*number);
    std::uint64_t const first = offset / size, count = extent.length / size;
    if (first != state.mapped_end) state.in_order = false;
    for (std::uint64_t k = 0; k < count; ++k) {
        std::uint64_t const unit = first + k;
        if (unit < track.length_units) continue;
        if (unit > 0 && state.chain_unit != unit - 1 && !full) loadChain(*number, unit - 1, walk);
        takeMappedUnit(*number, unit, extent.host + k * size);
    }
    state.mapped_end = std::max(state.mapped_end, first + count);
}

void Tail::takeMappedUnit(std::uint32_t track, std::uint64_t unit, std::uint64_t host) {
    Slot slot{.host = host, .unit = unit, .track = track, .mapped = true};
    states[track].next_unit = unit;
    UnitBytes const bytes = unitAt(host, tracks[track].unitSize());
    Candidate const candidate = fitOf(track, bytes, false);
    slot.recognised = candidate.fit > Fit::foreign;
    slot.chained = candidate.fit == Fit::chained;
    slot.plausible = candidate.fit >= Fit::marks;
    if (slot.recognised) noteMarks(slot, bytes);
    keep(slot);
}

// Reads the marks of a unit that the map has, for the one after it to be compared with.
void Tail::loadChain(std::uint32_t track, std::uint64_t unit, LogWalk const& walk) {
    if (tracks[track].format.video_type != TrackVideoType::none) return;
    std::uint64_t const position = tracks[track].positionOf(unit), size = tracks[track].unitSize();
    auto const extent = walk.map().atOrAfter(position);
    if (!extent || extent->start > position) return;
    std::uint64_t const offset = position - extent->start;
    if (extent->length - offset < size) return;
    Slot slot{.host = extent->host + offset, .unit = unit, .track = track, .mapped = true};
    noteMarks(slot, unitAt(slot.host, size));
}

void Tail::noteTurn(std::uint32_t track) {
    turns.push_back(track);
    if (turns.size() > TURNS_KEPT) turns.pop_front();
}

// --- Behind the map ---

void Tail::walkUnmapped() {
    while (!full && step()) {
    }
    end_of_tail = model->end();
}

// Takes the unit that comes next; false where the log ends.
bool Tail::step() {
    if (group_left > 0) {
        std::uint32_t const track = *group_track;
        std::uint64_t const position = model->end();
        if (position >= host_end) return false;
        UnitBytes const bytes = unitAt(position, tracks[track].unitSize());
        Candidate const candidate = fitOf(track, bytes, false);
        --group_left;
        if (candidate.fit >= Fit::marks)
            take(candidate, position);
        else
            addHole(track, position);
        return true;
    }
    std::uint64_t const without_blocks = model->end();
    // Any start that continues no record.
    std::uint64_t const room = model->roomForBlocks(UINT64_MAX);
    if (without_blocks + room >= host_end && without_blocks >= host_end) return false;
    for (std::uint64_t const position : {without_blocks + room, without_blocks}) {
        if (position >= host_end) continue;
        auto candidate = choose(position, false);
        if (!candidate) {
            if (room == 0) break;
            continue;
        }
        if (candidate->fit == Fit::foreign) {
            seam = position;
            return false;
        }
        // Tracks of one format are told apart by their turns, unless the marks have numbers.
        auto const rivals = rivalsOf(candidate->track);
        bool const sure = candidate->fit == Fit::chained || rivals.size() == 1 || predicted() == candidate->track;
        if (!sure) forgetNumbers(rivals);
        if (candidate->fit != Fit::chained) states[candidate->track].chain_is_its_own = sure;
        if (position == without_blocks && room != 0) model->goOnAt(position);
        take(*candidate, position);
        group_track = candidate->track;
        group_left = options.units_per_record - 1;
        return true;
    }
    return goOnBehindGap(without_blocks);
}

// The tracks, this one among them, whose units look alike.
std::vector<std::uint32_t> Tail::rivalsOf(std::uint32_t track) const {
    std::vector<std::uint32_t> rivals;
    for (std::uint32_t t = 0; t < tracks.size(); ++t)
        if (tracks[t].format.category != TrackCategory::timecode &&
            tracks[t].format.video_type == tracks[track].format.video_type &&
            tracks[t].unitSize() == tracks[track].unitSize())
            rivals.push_back(t);
    if (rivals.empty()) rivals.push_back(track);
    return rivals;
}

void Tail::forgetNumbers(std::vector<std::uint32_t> const& of_tracks) {
    for (std::uint32_t t : of_tracks)
        states[t].number_known = false;
}

// Valid until the next call. What the host does not have is zero.
UnitBytes Tail::unitAt(std::uint64_t position, std::uint64_t size) {
    if (position == buffered_at && size <= buffered) return {buffer.data(), static_cast<std::size_t>(size)};
    buffered_at = position;
    buffered = size;
    std::uint64_t const there = position < host_end ? std::min(size, host_end - position) : 0;
    std::memset(buffer.data(), 0, static_cast<std::size_t>(size));
    if (there == 0 || !area.readSync(position, static_cast<std::uint32_t>(there), buffer.data()).empty())
        std::memset(buffer.data(), 0, static_cast<std::size_t>(size));
    return {buffer.data(), static_cast<std::size_t>(size)};
}

Tail::Candidate Tail::fitOf(std::uint32_t number, UnitBytes bytes, bool after_gap) const {
    TailTrack const& track = tracks[number];
    TrackState const& state = states[number];
    Candidate candidate{number, Fit::none, state.next_unit};
    if (track.format.category == TrackCategory::timecode) {
        if (!inspect::recognised(track.format, options.frequency, bytes)) return candidate;
        auto const count = inspect::timecodeOf(options.frequency, bytes);
        bool const counts_on = state.next_timecode && count == state.next_timecode;
        // Nothing but zeros is a place without a unit, unless midnight comes next or the recording begins.
        if (!counts_on && state.next_timecode && isZero(bytes)) return candidate;
        // The first one has none to count on from.
        bool const first = !state.next_timecode && !isZero(bytes);
        candidate.fit = counts_on ? Fit::chained : first ? Fit::marks : Fit::weak;
        return candidate;
    }
    if (!inspect::recognised(track.format, options.frequency, bytes)) return candidate;
    if (track.format.category != TrackCategory::audio) {
        candidate.fit = Fit::marks;
        return candidate;
    }
    AudioUnit const now = inspect::readAudioUnit(track.format, options.frequency, bytes);
    auto const between =
        state.chain_unit ? unitsBetween(state.audio, now, options.frequency) : std::optional<std::uint32_t>();
    std::uint64_t const by_words = state.chain_unit.value_or(0) + 1 + between.value_or(0);
    if (between && (by_words == state.next_unit || after_gap)) {
        candidate.fit = Fit::chained;
        candidate.unit = by_words;
    } else {
        candidate.fit = now.startsRecording() || !state.chain_unit ? Fit::marks : Fit::foreign;
    }
    return candidate;
}

// False if the first bytes rule out the track.
bool Tail::mayBeAt(std::uint32_t track, std::uint64_t position) {
    TrackFormat const& format = tracks[track].format;
    if (format.category == TrackCategory::timecode) return true;
    UnitBytes const first = unitAt(position, buffered_at == position ? buffered : inspect::PAGE);
    return format.category != TrackCategory::audio || loadLE32(first.data()) == hemlock::block::MAGIC;
}

Tail::Candidate Tail::fitAt(std::uint32_t track, std::uint64_t position, bool after_gap) {
    return fitOf(track, unitAt(position, inspect::bytesToRecognise(tracks[track].format)), after_gap);
}

// The track whose unit is at the position: the one whose marks are there, and of several the one whose turn it is.
std::optional<Tail::Candidate> Tail::choose(std::uint64_t position, bool after_gap) {
    std::vector<Candidate> best;
    for (std::uint32_t t = 0; t < tracks.size(); ++t) {
        if (!mayBeAt(t, position)) continue;
        Candidate const candidate = fitAt(t, position, after_gap);
        if (candidate.fit == Fit::none) continue;
        if (!best.empty() && candidate.fit < best.front().fit) continue;
        if (!best.empty() && candidate.fit > best.front().fit) best.clear();
        best.push_back(candidate);
    }
    if (best.empty()) return std::nullopt;
    auto const turn = predicted();
    auto chosen = std::ranges::find_if(best, [&](Candidate const& each) { return turn == each.track; });
    if (chosen == best.end())
        chosen = std::ranges::min_element(best, {}, [&](Candidate const& each) { return each.unit; });
    Candidate const result = *chosen;
    if (result.fit != Fit::weak || after_gap) return result.fit == Fit::weak ? std::nullopt : std::optional(result);
    // A timecode that does not count on may be anything. It is one if another unit follows, or nothing at all.
    std::uint64_t const size = tracks[result.track].unitSize(), next = position + size;
    if (next >= host_end) return result;
    UnitBytes const bytes = unitAt(position, size);
    auto const count = inspect::timecodeOf(options.frequency, bytes);
    std::uint32_t const following = inspect::nextTimecode(options.frequency, bytes, *count);
    if (inspect::timecodeOf(options.frequency, unitAt(next, size)) == following) return result;
    for (std::uint32_t t = 0; t < tracks.size(); ++t)
        if (fitAt(t, next, false).fit >= Fit::marks) return result;
    return std::nullopt;
}

// The track that came next whenever the last turns were taken before; nothing if there was none or not always the same.
std::optional<std::uint32_t> Tail::predicted() const {
    std::size_t const context = tracks.size();
    if (turns.size() <= context) return std::nullopt;
    std::optional<std::uint32_t> next;
    std::size_t seen = 0;
    auto const recent = turns.end() - static_cast<std::ptrdiff_t>(context);
    for (std::size_t at = 0; at + context < turns.size(); ++at) {
        auto const from = turns.begin() + static_cast<std::ptrdiff_t>(at);
        if (!std::equal(recent, turns.end(), from)) continue;
        std::uint32_t const follower = *(from + static_cast<std::ptrdiff_t>(context));
        if (next && follower != *next) return std::nullopt;
        next = follower;
        ++seen;
    }
    return seen >= 2 ? next : std::nullopt;
}

void Tail::take(Candidate const& candidate, std::uint64_t position) {
    TailTrack const& track = tracks[candidate.track];
    TrackState& state = states[candidate.track];
    Slot slot{.host = position, .unit = candidate.unit, .track = candidate.track, .recognised = true};
    slot.chained = candidate.fit == Fit::chained;
    slot.plausible = candidate.fit >= Fit::marks;
    bool const numbered = track.format.category == TrackCategory::audio && slot.chained && state.chain_is_its_own;
    if (numbered) state.number_known = true;
    slot.proven_place = state.number_known && (state.in_order || numbered);
    noteMarks(slot, unitAt(position, track.unitSize()));
    model->take(track.positionOf(candidate.unit), track.unitSize());
    model->goOnAt(position + track.unitSize());
    state.next_unit = candidate.unit + 1;
    noteTurn(candidate.track);
    keep(slot);
}

void Tail::addHole(std::uint32_t track, std::uint64_t position) {
    TrackState& state = states[track];
    Slot slot{.host = position, .unit = state.next_unit, .track = track};
    slot.proven_place = state.number_known && state.in_order;
    if (!older_between && isOlder(track, position)) older_between = position;
    model->take(tracks[track].positionOf(state.next_unit), tracks[track].unitSize());
    model->goOnAt(position + tracks[track].unitSize());
    ++state.next_unit;
    if (state.next_timecode) ++*state.next_timecode;
    noteTurn(track);
    keep(slot);
}

// True if the bytes at a place where no unit was recognised are no part of one that was on its way: in a file that held
// nothing before, such a place has zeros, and whole blocks or pages behind the first one at most.
bool Tail::isOlder(std::uint32_t number, std::uint64_t position) {
    TrackFormat const& format = tracks[number].format;
    UnitBytes const bytes = unitAt(position, tracks[number].unitSize());
    if (format.category != TrackCategory::audio)
        return !isZero(bytes.first(std::min<std::size_t>(inspect::PAGE, bytes.size())));
    AudioUnit const unit = inspect::readAudioUnit(format, options.frequency, bytes);
    std::size_t const block_size = unit.count == 0 ? 0 : bytes.size() / unit.count;
    for (std::uint32_t i = 0; i < unit.count; ++i) {
        bool const in_place = unit.blocks[i] && unit.blocks[i]->block_byte == i;
        if (!in_place && !isZero(bytes.subspan(i * block_size, inspect::PAGE))) return true;
    }
    return false;
}

void Tail::keep(Slot slot) {
    if (found.size() >= options.most_slots) {
        if (!full) findings.add({.kind = budget_exceeded, .offset = slot.host});
        full = true;
        return;
    }
    found.push_back(slot);
}

// Remembers what the next unit of the track is compared with, and what the bytes say about their own end.
void Tail::noteMarks(Slot& slot, UnitBytes bytes) {
    TailTrack const& track = tracks[slot.track];
    TrackState& state = states[slot.track];
    if (inspect::hasHole(track.format, bytes)) slot.recognised = false;
    bool const inside_host = rangeWithin(slot.host, track.format.unit_size, host_end);
    slot.whole = inside_host && inspect::isWhole(track.format, bytes, inspect::HostBefore::unknown);
    slot.whole_on_zeros = inside_host && inspect::isWhole(track.format, bytes, inspect::HostBefore::zeros);
    bool const first = !state.chain_unit || state.mapped;
    state.chain_unit = slot.unit;
    if (track.format.category == TrackCategory::audio)
        state.audio = inspect::readAudioUnit(track.format, options.frequency, bytes);
    bool const begins = !slot.mapped && !slot.chained && state.audio.startsRecording();
    // A second beginning behind the map may be that of an older recording.
    if (begins && !first && !older_between) older_between = slot.host;
    state.mapped = slot.mapped;
    state.anchored = slot.mapped || (slot.chained && state.anchored) || (begins && first);
    slot.anchored = state.anchored;
    state.anchored_in_map = slot.mapped || (slot.chained && state.anchored_in_map);
    slot.anchored_in_map = state.anchored_in_map;
    if (slot.mapped) state.chain_is_its_own = true;
    if (track.format.category == TrackCategory::timecode) {
        auto const count = inspect::timecodeOf(options.frequency, bytes);
        state.next_timecode =
            count ? std::optional(inspect::nextTimecode(options.frequency, bytes, *count)) : std::nullopt;
    }
}

// --- Gaps ---

// True if a unit may begin here: a cheap look before the dear one.
bool Tail::hasMarks(UnitBytes bytes) const {
    if (loadLE32(bytes.data()) == hemlock::block::MAGIC) return true;
    for (std::size_t t = 0; t < tracks.size(); ++t) {
        TrackFormat const& format = tracks[t].format;
        if (format.video_type != TrackVideoType::none && inspect::recognised(format, options.frequency, bytes))
            return true;
        auto const& expected = states[t].next_timecode;
        if (expected && *expected != 0 && inspect::timecodeOf(options.frequency, bytes) == expected) return true;
    }
    return false;
}

// Looks for the next unit behind what was not recognised, and takes what lies between for units that did not land.
bool Tail::goOnBehindGap(std::uint64_t from) {
    std::uint64_t limit = LOOK_AHEAD + model->roomForBlocks(UINT64_MAX);
    for (TailTrack const& track : tracks)
        limit += 2 * track.unitSize();
    std::uint64_t const until = std::min(host_end, from + limit);
    constexpr std::uint64_t OVERLAP = 4096;  // for marks that a step cuts in two
    AlignedBuffer chunk(SCAN_STEP + OVERLAP);
    for (std::uint64_t at = from; at < until; at += SCAN_STEP) {
        std::uint64_t const there = std::min(SCAN_STEP + OVERLAP, until - at);
        readPages(area, at, {chunk.data(), static_cast<std::size_t>(there)});
        for (std::uint64_t offset = 0; offset < std::min(SCAN_STEP, there) && offset + SECTOR_SIZE <= there;
             offset += SECTOR_SIZE) {
            if (at + offset == from) continue;
            UnitBytes const sector(chunk.data() + offset, static_cast<std::size_t>(there - offset));
            if (!hasMarks(sector)) continue;
            auto const candidate = choose(at + offset, true);
            if (!candidate || candidate->fit < Fit::marks) continue;
            // Pictures may have such marks inside: another unit, or the end of the host, has to follow.
            if (candidate->fit == Fit::marks) {
                std::uint64_t const next = at + offset + tracks[candidate->track].unitSize();
                if (next < host_end && !choose(next, true)) continue;
            }
            if (takeGap(from, at + offset)) return true;
        }
    }
    return false;
}

// The units whose sizes add up to the gap: at most two of each track. `ambiguous` if there are several ways.
std::optional<std::vector<std::uint32_t>> Tail::tracksOfGap(std::uint64_t gap, bool& ambiguous) const {
    constexpr std::uint32_t MOST_EACH = 2;
    std::vector<std::uint32_t> counts(tracks.size()), once, twice;
    std::uint32_t ways_once = 0, ways_twice = 0, tries = 0;
    auto const search = [&](auto const& self, std::size_t track, std::uint64_t left) -> void {
        if (++tries > 100000) return;
        if (left == 0) {
            bool const at_most_one = std::ranges::all_of(counts, [](std::uint32_t count) { return count <= 1; });
            if (at_most_one && ways_once++ == 0) once = counts;
            if (!at_most_one && ways_twice++ == 0) twice = counts;
            return;
        }
        if (track == tracks.size()) return;
        for (std::uint32_t count = 0; count <= MOST_EACH && count * tracks[track].unitSize() <= left; ++count) {
            counts[track] = count;
            self(self, track + 1, left - count * tracks[track].unitSize());
        }
        counts[track] = 0;
    };
    search(search, 0, gap);
    if (ways_once + ways_twice == 0) return std::nullopt;
    ambiguous = ways_once != 1 && !(ways_once == 0 && ways_twice == 1);
    return ways_once != 0 ? once : twice;
}

bool Tail::takeGap(std::uint64_t from, std::uint64_t to) {
    std::uint64_t const room = model->roomForBlocks(UINT64_MAX);
    bool ambiguous = false;
    std::uint64_t units_from = from;
    auto counts = tracksOfGap(to - from, ambiguous);
    if (!counts && room != 0 && to - from >= room) {
        units_from = from + room;
        counts = tracksOfGap(to - units_from, ambiguous);
        if (counts) model->beginBlock();
    }
    if (!counts) {
        // Not units of these tracks, or too many: the numbers of what follows are not known where they count alone.
        findings.add({.kind = slots_unrecognised, .count = to - from, .offset = from});
        for (TrackState& state : states)
            state.number_known = false;
        model->goOnAt(to);
        return true;
    }
    if (ambiguous)
        for (TrackState& state : states)
            state.number_known = false;
    std::uint64_t position = units_from;
    for (std::uint32_t t = 0; t < tracks.size(); ++t)
        for (std::uint32_t n = 0; n < (*counts)[t]; ++n, position += tracks[t].unitSize())
            addHole(t, position);
    return true;
}

// True if there is more behind the end than units that were on their way can account for.
bool Tail::goesOnBehind(std::uint64_t position) {
    if (position >= host_end) return false;
    std::uint64_t on_their_way = 0;
    for (TailTrack const& track : tracks)
        on_their_way += track.unitSize() * options.units_per_record;
    std::uint64_t const from = position + std::min(on_their_way, host_end - position);
    std::uint64_t const until = std::min(host_end, from + LOOK_AHEAD);
    for (std::uint64_t at = from; at < until; at += SCAN_STEP)
        if (!isZero(unitAt(at, std::min(SCAN_STEP, until - at)))) return true;
    return false;
}

// --- What is proven ---

// A unit is written to its end if a later one of its track has got a place: a track is written in order. In a file that
// held another recording before, a place proves nothing by itself; there everything before an audio unit that continues
// this recording belongs to it. If the file is older than the clip, only sound that goes on from the map is known to be
// this recording's: that of an older one may begin at the same place.
void Tail::judge() {
    bool const older = options.file_is_older || seam || older_between || goesOnBehind(end_of_tail);
    std::uint64_t proven_end = UINT64_MAX;
    std::uint64_t const from = older_between.value_or(end_of_tail);
    if (from < host_end)
        findings.add({.kind = older ? older_bytes : log_broken_off, .count = host_end - from, .offset = from});
    if (older) {
        proven_end = 0;
        for (Slot const& slot : found) {
            bool const audio = tracks[slot.track].format.category == TrackCategory::audio;
            bool const anchored = options.file_is_older ? slot.anchored_in_map : slot.anchored;
            if (slot.mapped || (audio && slot.recognised && slot.chained && anchored))
                proven_end = std::max(proven_end, slot.host + tracks[slot.track].unitSize());
        }
    }
    // Pictures may end in zeros. Where most of a track's do not, one that does may lack its end.
    std::vector<std::int64_t> filled(tracks.size());
    for (Slot const& slot : found)
        if (slot.recognised) filled[slot.track] += slot.whole_on_zeros ? 1 : -1;
    std::vector<bool> later(tracks.size());
    std::vector<bool> counted_on(tracks.size());
    for (std::size_t i = found.size(); i-- > 0;) {
        Slot& slot = found[i];
        bool const ours = slot.mapped || slot.host + tracks[slot.track].unitSize() <= proven_end;
        bool const pictures = tracks[slot.track].format.video_type != TrackVideoType::none;
        bool const may_lack_end = pictures && !slot.whole_on_zeros && filled[slot.track] > 0;
        // What is whole may have been there before, unless it continues this recording.
        bool const whole = slot.whole && (!older || slot.chained);
        bool const finished = (later[slot.track] && !may_lack_end) || whole || (!older && slot.whole_on_zeros);
        bool const plausible = slot.plausible || counted_on[slot.track];
        if (slot.recognised)
            slot.certainty =
                ours && finished && plausible && slot.proven_place ? Certainty::certain : Certainty::likely;
        // Units that got their places together prove nothing of each other by their places alone.
        bool const got_its_place = slot.recognised || (options.units_per_record == 1 && slot.proven_place);
        if (got_its_place && slot.host < proven_end) later[slot.track] = true;
        counted_on[slot.track] = slot.chained;
    }
}

}  // namespace KelvonClip::recover
