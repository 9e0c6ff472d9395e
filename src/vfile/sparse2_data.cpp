#include "vfile/sparse2_data.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <limits>
#include <span>
#include <thread>
#include <utility>

#include "foundation/exported.h"
#include "foundation/kassert.h"
#include "foundation/zeros.h"
#include "vfile/settled_read.h"
#include "vfile/sparse_read.h"

namespace KelvonClip {

using namespace sparse2;

namespace {

constexpr std::uint64_t GREATEST = std::numeric_limits<std::uint64_t>::max();
constexpr char const* FULL = "Sparse file is full";

bool hasMagic(std::byte const* block, Magic const& magic) {
    return std::memcmp(block, magic.data(), magic.size()) == 0;
}
void setMagic(BlockBufStruct& block, Magic const& magic) {
    std::memcpy(block.bytes.data(), magic.data(), magic.size());
}

ExtentRecord recordIn(std::byte const* block, std::uint32_t index) {
    return ExtentRecord::decode(
        std::span<std::byte const, ExtentRecord::SIZE>(block + recordAt(index), ExtentRecord::SIZE));
}

// True if a replay that reaches this position ends there.
bool endsReplay(VFileObject& host, std::uint64_t host_position) {
    std::uint64_t const host_length = host.length();
    if (host_length != 0 && host_position >= host_length) return true;
    AlignedBuffer block(BLOCK_SIZE);
    return host.readSync(host_position, BLOCK_SIZE, block.data()).empty() && !hasMagic(block.data(), map_block::MAGIC);
}

// Overwrites a map block that may be left from an older file, before the log refers to its position. This also
// allocates the disk space that the new block will need.
KString wipeBlock(VFileObject& host, std::uint64_t host_position) {
    bool const older_block = !endsReplay(host, host_position);
    AlignedBuffer const zeros(BLOCK_SIZE);
    KString error = host.writeSync(host_position, BLOCK_SIZE, zeros.data());
    if (error.empty() && older_block) error = host.flush();
    return error;
}

}  // namespace

// --- The bytes of the blocks ---

BlockBufStruct DataStruct::emptySuperblock(std::uint64_t length) {
    BlockBufStruct block;
    setMagic(block, super_block::MAGIC);
    storeBE64(block.bytes.data() + super_block::LENGTH_AT, length);
    storeBE64(block.bytes.data() + runEntryAt(0), BLOCK_SIZE / SECTOR_SIZE);
    return block;
}

BlockBufStruct DataStruct::emptyMapBlock(std::uint64_t host_position) {
    BlockBufStruct block;
    setMagic(block, map_block::MAGIC);
    block.host_position = host_position;
    return block;
}

std::uint64_t DataStruct::runEntry(std::uint32_t run) const {
    return loadBE64(superblock->bytes.data() + runEntryAt(run));
}
void DataStruct::setRunEntry(std::uint32_t run, std::uint64_t sector) {
    storeBE64(superblock->bytes.data() + runEntryAt(run), sector);
}
ExtentRecord DataStruct::record(std::uint32_t index) const { return recordIn(current->bytes.data(), index); }
void DataStruct::setRecord(std::uint32_t index, ExtentRecord const& record) {
    record.encode(current->bytes.field<ExtentRecord::SIZE>(recordAt(index)));
    current->dirty = true;
}

// --- Replay ---

KString DataStruct::replay(VFileObject& host, bool read_only) {
    MapBlocksAhead blocks(host);
    if (KString error = blocks.readSuperblock(); !error.empty()) return error;
    if (!hasMagic(blocks.superblock(), super_block::MAGIC)) return u"Bad superblock";
    file_length = loadBE64(blocks.superblock() + super_block::LENGTH_AT);
    if (!read_only) keepSuperblock(blocks.superblock());
    next_free = BLOCK_SIZE;
    std::uint64_t const host_end = host.length();
    old_host_end = host_end != 0 ? host_end : GREATEST;  // 0: the host cannot tell
    while (replayBlock(host, blocks)) {
    }
    if (budget_exceeded) return SPARSE_MAP_UNREADABLE;
    if (!read_only) forgetUnreachedRuns();
    unreplayed_bytes = host_end > next_free ? host_end - next_free : 0;
    return {};
}

void DataStruct::keepSuperblock(std::byte const* bytes) {
    superblock = std::make_shared<BlockBufStruct>(bytes);
    file_length = loadBE64(bytes + super_block::LENGTH_AT);
}

std::optional<std::uint64_t> DataStruct::nextPosition(std::byte const* newest_superblock) const {
    // KEEP: host positions are compared with the logical length, here and for the records.
    if (block_count >= MAX_REPLAYED_BLOCKS) return std::nullopt;
    BlockPlace const place = placeOf(block_count);
    auto const run_start = sectorsToBytes(loadBE64(newest_superblock + runEntryAt(place.run)));
    if (!run_start || *run_start == 0) return std::nullopt;
    if (!rangeWithin(*run_start, runBytes(place.run), GREATEST)) return std::nullopt;
    std::uint64_t const position = *run_start + std::uint64_t{place.index} * BLOCK_SIZE;
    if (!rangeWithin(position, BLOCK_SIZE, fileLength()) || position > next_free) return std::nullopt;
    if (place.index == 0 && position != next_free) return std::nullopt;
    return position;
}

// Replays the next map block and its records; false where the log ends.
bool DataStruct::replayBlock(VFileObject& host, MapBlocksAhead& blocks) {
    auto const position = nextPosition(blocks.superblock());
    if (!position) return false;
    std::byte const* const block = blocks.block(block_count, *position);
    if (block == nullptr) {
        unreadable = isInsideHost(host, *position, BLOCK_SIZE);
        return false;
    }
    if (!hasMagic(block, map_block::MAGIC)) return false;
    if (!replayLateRecords(host) || nextPosition(blocks.superblock()) != position) return false;
    budget_exceeded = !host.takeMapBlock();
    if (budget_exceeded) return false;
    ++budgeted_blocks;
    return begin(block, *position);
}

// The last block has a follower. If it was not full when it was read, a writer may have filled it since then, and
// without those records the follower's would get wrong positions: reads it again. False if the log ends in it.
bool DataStruct::replayLateRecords(VFileObject& host) {
    if (currentIsFull()) return true;
    AlignedBuffer block(BLOCK_SIZE);
    unreadable = !readSettled(host, last_block_at, block).empty() || !continuesLast(block.data());
    return !unreadable && replayRecords(block.data());
}

// Makes a block the last one and replays its records; false if the log ends in it.
bool DataStruct::begin(std::byte const* block, std::uint64_t position) {
    // A new run counts only now: if its first block is missing, the run can be started again at the same position.
    if (BlockPlace const place = placeOf(block_count); place.index == 0) next_free += runBytes(place.run);
    last_block_at = position;
    last_block_data = next_free;
    ++block_count;
    record_count = 0;
    bool const goes_on = replayRecords(block);
    if (superblock) keepCurrent(block);
    return goes_on;
}

// Keeps the last block, for the records that will be added to it.
void DataStruct::keepCurrent(std::byte const* block) {
    if (!current) current = std::make_shared<BlockBufStruct>();
    current->host_position = last_block_at;
    std::memcpy(current->bytes.data(), block, BLOCK_SIZE);
    // Data after the replayed records must not become valid when new records are added.
    std::span const unused(current->bytes.data() + recordAt(record_count), current->bytes.data() + BLOCK_SIZE);
    stale_tail = !isZero(unused);
    if (stale_tail) std::memset(unused.data(), 0, unused.size());
    frozen_records = record_count;
}

bool DataStruct::replayRecords(std::byte const* block) {
    for (; record_count < map_block::MAX_RECORDS; ++record_count) {
        ExtentRecord const next = recordIn(block, record_count);
        if (next.length == 0) return true;
        if (!replayRecord(next)) return false;
    }
    return true;
}

bool DataStruct::replayRecord(ExtentRecord const& record) {
    auto const start = sectorsToBytes(record.start), length = sectorsToBytes(record.length);
    if (!start || !length || !rangeWithin(next_free, *length, fileLength())) return false;
    if (!filemap.insert({*start, *length, next_free})) return false;
    next_free += *length;
    return true;
}

// --- Following a writer ---

std::optional<std::uint64_t> DataStruct::currentPosition() const {
    if (block_count == 0) return std::nullopt;
    return last_block_at;
}

bool DataStruct::takeMoreRecords(AlignedBuffer const& block) {
    if (!continuesLast(block.data())) return false;
    replayRecords(block.data());
    return true;
}

bool DataStruct::continuesLast(std::byte const* block) const {
    return hasMagic(block, map_block::MAGIC) && holdsReplayedRecords(block);
}

// The records that were replayed are in the map, one extent each.
bool DataStruct::holdsReplayedRecords(std::byte const* block) const {
    std::uint64_t host_position = last_block_data;
    for (std::uint32_t index = 0; index < record_count; ++index) {
        ExtentRecord const expected = recordIn(block, index);
        auto const start = sectorsToBytes(expected.start), length = sectorsToBytes(expected.length);
        if (!start || !length || filemap.beginningAt(*start) != Extent{*start, *length, host_position}) return false;
        host_position += *length;
    }
    return true;
}

bool DataStruct::takeBlock(AlignedBuffer const& block, std::uint64_t position) {
    if (!hasMagic(block.data(), map_block::MAGIC)) return false;
    begin(block.data(), position);
    ++budgeted_blocks;
    return true;
}

// Removes the runs after the replayed ones: they would be found again once the log has grown up to them.
void DataStruct::forgetUnreachedRuns() {
    BlockPlace const next = placeOf(block_count);
    std::uint32_t const first = next.index == 0 ? next.run : next.run + 1;
    std::span const unreached(superblock->bytes.data() + runEntryAt(first), superblock->bytes.data() + BLOCK_SIZE);
    stale_runs = !isZero(unreached);
    if (stale_runs) std::memset(unreached.data(), 0, unreached.size());
}

// --- Allocation ---

HostRange DataStruct::mapRange(VFileObject& host, std::uint64_t position, std::uint64_t length) {
    // makeRoom may wait for the disk. A completion routine that ran meanwhile may have mapped the range: look again.
    for (;;) {
        if (auto const extent = filemap.atOrAfter(position); extent && extent->start <= position) {
            std::uint64_t const offset = position - extent->start;
            return {{}, extent->host + offset, std::min(length, extent->length - offset)};
        }
        if (unreadable) return {SPARSE_MAP_UNREADABLE};
        if (lastRecordEndsAt(position) || hasRoom()) return allocate(position, length, UnlandedRanges::makeNode());
        if (KString error = makeRoom(host); !error.empty()) return {std::move(error)};
    }
}

// Allocates space for an unmapped range at the end of the log, up to the start of the next extent.
HostRange DataStruct::allocate(std::uint64_t position, std::uint64_t length, UnlandedRanges::Node node) {
    bool const aligned_position =
        kassert(position % SECTOR_SIZE == 0, "vfilesparse2", __LINE__, "pos % SECTOR_SIZE == 0");
    bool const aligned_length = kassert(length % SECTOR_SIZE == 0, "vfilesparse2", __LINE__, "len % SECTOR_SIZE == 0");
    if (!aligned_position || !aligned_length) return {};
    if (auto const next = filemap.atOrAfter(position)) {
        if (!kassert(next->start > position, "vfilesparse2", __LINE__, "it->first > pos")) return {};
        length = std::min(length, next->start - position);
    }
    // Refuse what a later replay would not accept.
    if (!rangeWithin(next_free, length, fileLength())) return {FULL};

    HostRange place{{}, next_free, length};
    if (!extendLastRecord(position, length) && !addRecord(position, length)) return {};
    unlanded.add(std::move(node), position, length, next_free < old_host_end);
    next_free += length;
    return place;
}

bool DataStruct::lastRecordEndsAt(std::uint64_t position) const {
    if (record_count == frozen_records) return false;
    ExtentRecord const last = record(record_count - 1);
    return (last.start + last.length) * SECTOR_SIZE == position;
}

bool DataStruct::extendLastRecord(std::uint64_t position, std::uint64_t length) {
    if (!lastRecordEndsAt(position)) return false;
    ExtentRecord const last = record(record_count - 1);
    auto const extent = filemap.beginningAt(last.start * SECTOR_SIZE);
    if (!kassert(extent.has_value(), "vfilesparse2", __LINE__, "it != d->filemap.end ()")) return false;
    if (extent->host + extent->length != next_free || !filemap.extend(extent->start, length)) return false;
    setRecord(record_count - 1, {last.start, last.length + length / SECTOR_SIZE});
    return true;
}

bool DataStruct::addRecord(std::uint64_t position, std::uint64_t length) {
    if (!hasRoom() || !filemap.insert({position, length, next_free})) return false;
    setRecord(record_count, {position / SECTOR_SIZE, length / SECTOR_SIZE});
    ++record_count;
    return true;
}

// True if a record may be added now: everything that it depends on is on disk or is being written.
bool DataStruct::hasRoom() const {
    return current && record_count < map_block::MAX_RECORDS && (somebodyUpTheStackSaves() || nothingToSaveFirst());
}

KString DataStruct::makeRoom(VFileObject& host) {
    if (!current || record_count == map_block::MAX_RECORDS)
        if (KString error = startBlock(); !error.empty()) return error;
    return saveFullBlocks(host);
}

// Makes the next map block the current one, in memory. What must then be written is in `unsaved` and the superblock.
KString DataStruct::startBlock() {
    BlockPlace const place = placeOf(block_count);
    if (block_count >= MAX_REPLAYED_BLOCKS) return FULL;
    bool const begins_run = place.index == 0;
    std::uint64_t const run_bytes = runBytes(place.run);
    if (begins_run && !rangeWithin(next_free, run_bytes, GREATEST)) return FULL;

    std::uint64_t const run_start = begins_run ? next_free : runEntry(place.run) * SECTOR_SIZE;
    std::uint64_t const position = run_start + std::uint64_t{place.index} * BLOCK_SIZE;
    if (!rangeWithin(position, BLOCK_SIZE, fileLength())) return FULL;
    auto next = std::make_shared<BlockBufStruct>(emptyMapBlock(position));
    unsaved.push_back({current, position});

    // From here on nothing can fail.
    if (begins_run) {
        setRunEntry(place.run, run_start / SECTOR_SIZE);
        superblock->dirty = true;
        next_free += run_bytes;
    }
    current = std::move(next);
    ++block_count;
    record_count = frozen_records = 0;
    follower_wiped = stale_tail = false;
    return {};
}

// --- What has not landed ---

std::optional<Extent> DataStruct::readable(std::uint64_t position) const {
    auto extent = filemap.atOrAfter(position);
    if (!extent || extent->start > position) return extent;
    auto const gap = unlanded.atOrAfter(position);
    if (!gap) return extent;
    if (gap->start == position) return Extent{gap->end, 1, 0};  // zeros up to there
    extent->length = std::min(extent->length, gap->start - extent->start);
    return extent;
}

void DataStruct::clearOldBytes(VFileObject& host, UnlandedRanges::Clear which) {
    std::uint64_t position = 0;
    while (auto const piece = unlanded.beginClearing(position, which)) {
        bool successful = false;
        unreported([&] { successful = clear(host, *piece).empty(); });
        unlanded.cleared(*piece, successful);
        position = piece->end;
    }
}

KString DataStruct::clear(VFileObject& host, UnlandedRanges::Piece piece) const {
    AlignedBuffer const zeros(BLOCK_SIZE);
    for (std::uint64_t position = piece.start; position < piece.end;) {
        auto const extent = filemap.atOrAfter(position);
        if (!extent || extent->start > position) return "Software error";
        std::uint64_t const offset = position - extent->start;
        auto const step = static_cast<std::uint32_t>(
            std::min({extent->length - offset, piece.end - position, std::uint64_t{BLOCK_SIZE}}));
        if (KString error = host.writeSync(extent->host + offset, step, zeros.data()); !error.empty()) return error;
        position += step;
    }
    return {};
}

// --- Writing back ---

bool DataStruct::somebodyUpTheStackSaves() const {
    auto const here = std::this_thread::get_id();
    return saver == here || snapshot_writer == here;
}

bool DataStruct::nothingToSaveFirst() const {
    return unsaved.empty() && !superblock->dirty && !stale_runs && !stale_tail;
}

// Writes, in the order of the log, everything that must be on disk before records are added to the current block. After
// a failure everything unwritten is kept; the next attempt continues there.
KString DataStruct::saveFullBlocks(VFileObject& host) {
    if (somebodyUpTheStackSaves()) return {};  // that call continues until everything is written
    if (nothingToSaveFirst()) return {};
    auto const alone = map_io.hold();
    struct Guard {
        std::thread::id& saver;
        explicit Guard(std::thread::id& set) : saver(set) { saver = std::this_thread::get_id(); }
        ~Guard() { saver = {}; }
    } guard(saver);
    if (KString error = removeWhatReplayLeft(host); !error.empty()) return error;
    while (!nothingToSaveFirst()) {
        KString error = unsaved.empty() ? saveSuperblock(host) : saveOldest(host);
        if (!error.empty()) return error;
    }
    return {};
}

// Removes from the disk what the replay did not accept, before records are added: a later replay would mistake it for
// theirs. Done with the first change, so that opening a damaged file does not change it.
KString DataStruct::removeWhatReplayLeft(VFileObject& host) {
    if (!stale_runs && !stale_tail) return {};
    if (stale_runs)
        if (KString error = saveSuperblock(host); !error.empty()) return error;
    if (stale_tail) {
        std::shared_ptr<BlockBufStruct> const block = current;
        KString error = host.writeSync(block->host_position, BLOCK_SIZE, block->bytes.data());
        if (!error.empty()) return error;
        stale_tail = false;
    }
    return host.flush();
}

KString DataStruct::saveOldest(VFileObject& host) {
    Unsaved const oldest = unsaved.front();  // a copy: the list may grow in the waits below
    KString refused = wipeBlock(host, oldest.next_block_at);
    // On a full disk there is no space for the next block. Records that were already accepted are written all the same;
    // no new ones are accepted until there is space.
    if (!refused.empty() && !endsReplay(host, oldest.next_block_at)) return refused;
    if (oldest.full && oldest.full->dirty) {
        KString error = host.writeSync(oldest.full->host_position, BLOCK_SIZE, oldest.full->bytes.data());
        if (!error.empty()) return error;
        oldest.full->dirty = false;
    }
    if (!refused.empty()) return refused;
    unsaved.erase(unsaved.begin());
    return {};
}

KString DataStruct::saveSuperblock(VFileObject& host) {
    AlignedBuffer const snapshot(superblock->bytes);  // the run table may change during the write
    superblock->dirty = false;
    KString error;
    try {
        error = host.writeSync(0, BLOCK_SIZE, snapshot.data());
    } catch (...) {
        superblock->dirty = true;
        throw;
    }
    if (!error.empty())
        superblock->dirty = true;
    else
        stale_runs = false;  // the run table in memory has none
    return error;
}

DataStruct::Snapshot DataStruct::beginSaving() {
    if (!current || !current->dirty) return {};
    frozen_records = record_count;
    return {current, current->bytes, record_count, follower_wiped ? std::nullopt : followerInRun()};
}

DataStruct::Prepared DataStruct::prepareToSave(VFileObject& host, Snapshot const& snapshot) {
    if (!snapshot.block && unsaved.empty() && !superblock->dirty) return {};
    if (KString error = saveFullBlocks(host); !error.empty() && !everyRecordIsSaved()) return {std::move(error)};
    return {{}, snapshot.block && snapshot.block == current};
}

KString DataStruct::save(VFileObject& host, Snapshot const& snapshot) {
    // If the position of the next block cannot be written, it is probably past the end of the host. That is no reason
    // to lose the records too.
    if (snapshot.follower)
        if (KString error = wipeBlock(host, *snapshot.follower);
            !error.empty() && !endsReplay(host, *snapshot.follower))
            return error;
    return host.writeSync(snapshot.block->host_position, BLOCK_SIZE, snapshot.bytes->data());
}

void DataStruct::saved(Snapshot const& snapshot) {
    if (snapshot.block != current) return;
    follower_wiped = true;
    // Frozen records do not change. If their number is the same, so is the block.
    if (record_count == snapshot.record_count) current->dirty = false;
}

bool DataStruct::everyRecordIsSaved() const {
    return record_count == 0 &&
           std::ranges::none_of(unsaved, [](Unsaved const& block) { return block.full && block.full->dirty; });
}

void DataStruct::giveBackUnwritten(VFileObject& host) {
    if (record_count == 0 || unreadable) return;
    host.releaseAllocation();
    giveBackIdleRecords();
    shortenToHost(host);
}

// Only in the current block: blocks before it are full and on disk.
void DataStruct::giveBackIdleRecords() {
    while (record_count > 0) {
        ExtentRecord const last = record(record_count - 1);
        std::uint64_t const start = last.start * SECTOR_SIZE, end = start + last.length * SECTOR_SIZE;
        std::uint64_t const kept_end = unlanded.landedEnd(start, end - start);
        bool const all = kept_end == start;
        // KEEP: a record that was only reserved stays.
        if (kept_end == end || (all && !unlanded.wasWritten(start, end - start))) return;
        setRecord(record_count - 1, all ? ExtentRecord{} : ExtentRecord{last.start, (kept_end - start) / SECTOR_SIZE});
        unlanded.forget(kept_end, end - kept_end);
        next_free -= end - kept_end;
        if (!all) return;
        --record_count;
    }
}

// Removes from the last record what the host does not have.
void DataStruct::shortenToHost(VFileObject& host) {
    if (record_count == 0) return;
    std::uint64_t const host_length = host.length();
    if (host_length >= next_free) return;
    // A sector of which only a part exists counts as missing.
    std::uint64_t const shortfall = next_free - host_length;
    std::uint64_t const sectors = shortfall / SECTOR_SIZE + (shortfall % SECTOR_SIZE != 0 ? 1 : 0);
    ExtentRecord const last = record(record_count - 1);
    if (last.length <= sectors) return;
    setRecord(record_count - 1, {last.start, last.length - sectors});
    next_free -= sectors * SECTOR_SIZE;  // closing may be tried again
}

// The position of the block after the current one, if it is in the same run.
std::optional<std::uint64_t> DataStruct::followerInRun() const {
    if (placeOf(block_count).index == 0) return std::nullopt;
    return current->host_position + BLOCK_SIZE;
}

}  // namespace KelvonClip
