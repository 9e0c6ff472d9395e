#include "inspect/log_walk.h"

#include <cstddef>
#include <cstring>
#include <limits>
#include <utility>

#include "foundation/load_store.h"
#include "foundation/zeros.h"

namespace KelvonClip::inspect {

using namespace sparse2;

namespace {

constexpr std::uint64_t GREATEST = std::numeric_limits<std::uint64_t>::max();
// What a record may need in the map: two runs, and its share of a page.
constexpr std::uint64_t MEMORY_PER_RECORD = 256;

bool hasMagic(AlignedBuffer const& block, Magic const& magic) {
    return std::memcmp(block.data(), magic.data(), magic.size()) == 0;
}

std::uint64_t bytesOfRun(std::uint32_t run) { return std::uint64_t{runSize(run)} * BLOCK_SIZE; }

}  // namespace

KString LogWalk::begin() {
    if (KString error = host.readSync(0, BLOCK_SIZE, superblock.data()); !error.empty()) return error;
    if (!hasMagic(superblock, super_block::MAGIC)) return "Bad superblock";
    length = loadBE64(superblock.data() + super_block::LENGTH_AT);
    log_end = BLOCK_SIZE;
    return {};
}

std::optional<std::uint64_t> LogWalk::runStart(std::uint32_t run) const {
    std::uint64_t const sector =
        loadBE64(superblock.data() + super_block::RUN_TABLE_AT + run * super_block::RUN_ENTRY_SIZE);
    if (sector == 0) return std::nullopt;
    return sectorsToBytes(sector).value_or(GREATEST);
}

std::optional<LogWalk::Step> LogWalk::next() {
    while (why == End::not_yet || in_block) {
        if (!in_block) {
            if (!enterBlock()) return std::nullopt;
            continue;
        }
        Step step{Step::record, block_count - 1, 0, {}, 0, 0, 0, block_named};
        if (!ending && record_count < map_block::MAX_RECORDS && takeRecord(step)) return step;
        return leaveBlock();
    }
    return std::nullopt;
}

void LogWalk::stop(End reason, std::uint64_t at) {
    why = reason;
    end_at = at;
}

bool LogWalk::hasBlock(std::uint64_t position) {
    AlignedBuffer sector(SECTOR_SIZE);
    return host.readSync(position, SECTOR_SIZE, sector.data()).empty() && hasMagic(sector, map_block::MAGIC);
}

// Goes to the next map block under the rules of the replay; false if the walk ends there.
bool LogWalk::enterBlock() {
    if (block_count >= MAX_REPLAYED_BLOCKS) return stop(End::most_blocks, log_end), false;
    BlockPlace const place = placeOf(block_count);
    auto run_start = runStart(place.run);
    bool const is_named = run_start.has_value();
    if (!is_named && runs == Runs::found) {
        bool const full = record_count == map_block::MAX_RECORDS;
        if (place.index == 0 && full && hasBlock(log_end)) {
            if (found_runs.empty()) first_found = place.run;
            found_runs.push_back(log_end);
        }
        if (!found_runs.empty() && place.run - first_found < found_runs.size())
            run_start = found_runs[place.run - first_found];
    }
    if (!run_start) return stop(End::no_more_runs, log_end), false;

    std::uint64_t const position = *run_start + std::uint64_t{place.index} * BLOCK_SIZE;
    bool const begins_run = place.index == 0;
    bool const fits = rangeWithin(*run_start, bytesOfRun(place.run), GREATEST) &&
                      rangeWithin(position, BLOCK_SIZE, length) && position <= log_end;
    if (!fits || (begins_run && position != log_end)) return stop(End::misplaced_block, position), false;
    if (!memoryLeft() || !budget.takeMapBlock()) {
        budget.setExceeded();
        return stop(End::budget, position), false;
    }

    if (!host.readSync(position, BLOCK_SIZE, block.data()).empty()) {
        bool const inside = rangeWithin(position, BLOCK_SIZE, host.length());
        return stop(inside ? End::unreadable_block : End::unwritten_block, position), false;
    }
    if (!hasMagic(block, map_block::MAGIC)) {
        // A writer leaves the place of the next block empty. Anything else there was a block once.
        bool const empty = isZero({block.data(), BLOCK_SIZE});
        return stop(empty ? End::unwritten_block : End::missing_block, position), false;
    }
    if (begins_run) log_end += bytesOfRun(place.run);
    block_at = position;
    block_named = is_named;
    ++block_count;
    record_count = 0;
    in_block = true;
    return true;
}

// Takes the next record into the map; false at the end of the list and at a record that no replay would take.
bool LogWalk::takeRecord(Step& step) {
    std::size_t const at = map_block::RECORDS_AT + std::size_t{record_count} * ExtentRecord::SIZE;
    ExtentRecord const record = ExtentRecord::decode(std::as_const(block).field<ExtentRecord::SIZE>(at));
    if (record.length == 0) return false;
    step.at = block_at + at;
    auto const start = sectorsToBytes(record.start), bytes = sectorsToBytes(record.length);
    ending = true;
    if (!start || !bytes || !rangeWithin(log_end, *bytes, length)) return stop(End::record_outside, step.at), false;
    step.extent = {*start, *bytes, log_end};
    if (!rangeWithin(*start, *bytes, GREATEST)) return stop(End::record_outside, step.at), false;
    if (!extents.insert(step.extent)) return stop(End::record_overlap, step.at), false;
    ending = false;
    log_end += *bytes;
    ++record_count;
    last_extent = step.extent;
    return true;
}

std::optional<LogWalk::Step> LogWalk::leaveBlock() {
    in_block = false;
    Step step{Step::block_end, block_count - 1, block_at, {}, record_count, 0, 0, block_named};
    std::size_t const used = map_block::RECORDS_AT + std::size_t{record_count} * ExtentRecord::SIZE;
    if (isZero({std::as_const(block).data() + used, BLOCK_SIZE - used})) return step;
    for (std::size_t i = used; i < BLOCK_SIZE; ++i) {
        if (block.data()[i] == std::byte{0}) continue;
        if (step.stale++ == 0) step.stale_from = block_at + i;
    }
    return step;
}

// Whether the map may take in one more block. It is measured only when it could have become too large.
bool LogWalk::memoryLeft() {
    constexpr std::uint64_t PER_BLOCK = map_block::MAX_RECORDS * MEMORY_PER_RECORD;
    if (!budget.mapFits(memory_bound + PER_BLOCK)) memory_bound = extents.memoryBytes();
    if (!budget.mapFits(memory_bound + PER_BLOCK)) return false;
    memory_bound += PER_BLOCK;
    return true;
}

bool LogWalk::nextRunIsNamed() const {
    BlockPlace const place = placeOf(block_count);
    return place.index == 0 && place.run < super_block::MAX_RUNS && runStart(place.run) == log_end;
}

std::optional<LogWalk::Unreached> LogWalk::unreachedRuns() const {
    BlockPlace const place = placeOf(block_count);
    std::uint32_t run = place.index == 0 ? place.run : place.run + 1;
    if (nextRunIsNamed()) ++run;
    std::optional<Unreached> unreached;
    std::size_t const at = runEntryAt(run);  // the table fills the block
    if (at >= BLOCK_SIZE || isZero({superblock.data() + at, BLOCK_SIZE - at})) return unreached;
    for (; run < super_block::MAX_RUNS; ++run) {
        auto const start = runStart(run);
        if (!start) continue;
        if (!unreached) unreached = Unreached{run, 0, *start};
        ++unreached->count;
    }
    return unreached;
}

}  // namespace KelvonClip::inspect
