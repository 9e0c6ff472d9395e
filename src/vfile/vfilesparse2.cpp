#include "vfile/vfilesparse2.h"

#include <algorithm>
#include <cstddef>
#include <limits>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

#include "foundation/exported.h"
#include "foundation/kassert.h"
#include "vfile/settled_read.h"
#include "vfile/shared_files.h"
#include "vfile/sparse_read.h"

namespace KelvonClip {

namespace {

using Registry = SharedFiles<VFileObject const*, VFileSparse2>;

}  // namespace

// The completion object of a write into a range that nothing has been written to before. Tells the log the outcome,
// then passes it on.
class VFileSparse2::Landing : public CIO::CIOObject {
  public:
    Landing(std::shared_ptr<VFileSparse2> file, std::uint64_t position, std::uint32_t bytes,
            std::shared_ptr<CIO::CIOObject> caller_done)
        : sparse(std::move(file)), start(position), length(bytes), done(std::move(caller_done)) {}

    void complete() override {
        bool const has_failed = error() != nullptr;
        if (tracked) {
            auto locked = sparse->data.hold();
            if (has_failed)
                locked.value.unlanded.failed(start, length);
            else
                locked.value.unlanded.landed(start, length);
        }
        if (has_failed) handErrorTo(*done);
        done.reset();
        sparse.reset();
    }

    bool tracked = false;

  private:
    std::shared_ptr<VFileSparse2> sparse;
    std::uint64_t start;
    std::uint32_t length;
    std::shared_ptr<CIO::CIOObject> done;
};

VFileSparse2::VFileSparse2(std::shared_ptr<VFileObject> host_file, DataStruct replayed, bool opened_read_only)
    : VFileHosted(std::move(host_file)), read_only(opened_read_only), length_bytes(replayed.fileLength()),
      data(std::move(replayed)) {}

VFileSparse2::~VFileSparse2() { host->giveMapBlocks(data.hold().value.budgeted_blocks); }

Opened<VFileSparse2> VFileSparse2::open(std::shared_ptr<VFileObject> host, bool read_only) {
    return Registry::ofProcess().open(host.get(), host, [&]() -> MadeFile<VFileSparse2> {
        DataStruct log;
        if (KString error = log.replay(*host, read_only); !error.empty()) {
            host->giveMapBlocks(log.budgeted_blocks);
            return {std::move(error), nullptr};
        }
        return {{}, std::unique_ptr<VFileSparse2>(new VFileSparse2(host, std::move(log), read_only))};
    });
}

KString VFileSparse2::create(std::shared_ptr<VFileObject> const& host, std::uint64_t length) {
    char const* const refusal = "Cannot create Sparse while same Sparse file is open";
    return Registry::ofProcess().whileClosed(host.get(), host, refusal, [&]() -> KString {
        // The superblock comes last: without it the file does not exist.
        BlockBufStruct const map_block = DataStruct::emptyMapBlock(sparse2::BLOCK_SIZE);
        BlockBufStruct const superblock = DataStruct::emptySuperblock(length);
        for (BlockBufStruct const* block : {&map_block, &superblock}) {
            KString error = host->writeSync(block->host_position, sparse2::BLOCK_SIZE, block->bytes.data());
            if (!error.empty()) return error;
        }
        return {};
    });
}

KString VFileSparse2::writeBack(WriteBackStep step, Durability durability) {
    if (read_only) return {};
    if (step == WriteBackStep::begin) {
        to_save = data.hold().value.beginSaving();
        return {};
    }
    if (step == WriteBackStep::maps) data.hold().value.clearOldBytes(*host, UnlandedRanges::Clear::what_failed);
    // A container below must be able to find the data before this map refers to it, and then the map itself.
    if (host->isContainer())
        if (KString error = host->writeBack(durability); !error.empty()) return error;
    return step == WriteBackStep::maps ? writeMap() : KString();
}

// What could not be written stays in `to_save`, so that none of the files that share this map goes on to its length.
KString VFileSparse2::writeMap() {
    // Lets go of the disk before it takes the lock of the log: recording threads take them the other way round. Also
    // when memory runs out.
    struct Writing {
        KProtect<DataStruct>& data;
        std::unique_lock<std::recursive_mutex> alone;
        Writing(KProtect<DataStruct>& log, std::unique_lock<std::recursive_mutex> map_io)
            : data(log), alone(std::move(map_io)) {}
        Writing(Writing const&) = delete;
        Writing& operator=(Writing const&) = delete;
        ~Writing() {
            alone.unlock();
            data.hold().value.snapshot_writer = {};
        }
    };
    KString error;
    {
        std::optional<Writing> writing;
        {
            auto locked = data.hold();
            auto prepared = locked.value.prepareToSave(*host, to_save);
            if (!prepared.write_block) {
                if (prepared.error.empty()) to_save = {};
                return std::move(prepared.error);
            }
            writing.emplace(data, locked.value.map_io.hold());
            locked.value.snapshot_writer = std::this_thread::get_id();
        }
        error = DataStruct::save(*host, to_save);
    }
    if (error.empty()) data.hold().value.saved(std::exchange(to_save, {}));
    return error;
}

KString VFileSparse2::refresh(RefreshStep step) {
    if (!read_only) return {};
    // Several files share this map: the first one's step counts. If the map cannot be read, none of them shows a length
    // that it does not cover.
    if (step == RefreshStep::lengths && !std::exchange(to_follow, true) && !host->isContainer())
        return host->refresh(step);
    if (step != RefreshStep::maps) return {};
    if (std::exchange(to_follow, false)) follow_error = refreshMap();
    return follow_error;
}

KString VFileSparse2::refreshMap() {
    VFileObject* const below[] = {host.get()};
    KString error = host->isContainer() ? refreshAll(below) : host->refresh(RefreshStep::maps);
    return error.empty() ? followWriter() : error;
}

// Blocks are read without the lock of the log, so readers do not wait for the disk: only a refresh changes the map of a
// read-only file, and there is one at a time.
KString VFileSparse2::followWriter() {
    if (!data.hold().value.isKnown()) return replayAnew();
    AlignedBuffer block(sparse2::BLOCK_SIZE);
    if (auto const position = data.hold().value.currentPosition()) {
        if (KString error = readSettled(*host, *position, block); !error.empty()) return error;
        if (!data.hold().value.takeMoreRecords(block)) return replayAnew();
    }
    while (data.hold().value.currentIsFull()) {
        if (KString error = readSettled(*host, 0, block); !error.empty()) return error;
        auto const position = data.hold().value.nextPosition(block.data());
        if (!position || !rangeWithin(*position, sparse2::BLOCK_SIZE, host->length())) return {};
        if (KString error = readSettled(*host, *position, block); !error.empty()) return error;
        if (!host->takeMapBlock()) return SPARSE_MAP_UNREADABLE;
        if (!data.hold().value.takeBlock(block, *position)) {
            host->giveMapBlocks(1);
            return {};
        }
    }
    return {};
}

// The writer has taken records back, when it closed the file or after a failure: nothing was ever written to them. Or a
// block could not be read before. What is known stays if the log cannot be read to its end.
KString VFileSparse2::replayAnew() {
    host->giveMapBlocks(std::exchange(data.hold().value.budgeted_blocks, 0));
    DataStruct log;
    KString error = log.replay(*host, true);
    if (error.empty() && log.fileLength() != length_bytes) error = u"Bad superblock";
    if (error.empty() && !log.isKnown()) error = SPARSE_MAP_UNREADABLE;
    if (!error.empty()) {
        host->giveMapBlocks(log.budgeted_blocks);
        return error;
    }
    data.hold().value = std::move(log);
    return {};
}

KString VFileSparse2::close() {
    if (read_only) return {};
    {
        auto locked = data.hold();
        locked.value.giveBackUnwritten(*host);
        locked.value.clearOldBytes(*host, UnlandedRanges::Clear::everything);
    }
    return lastWriteBack();
}

void VFileSparse2::read(std::uint64_t position, std::uint32_t length, void* buffer,
                        std::shared_ptr<CIO::CIOObject> done) {
    if (!rangeWithin(position, length, length_bytes)) return done->setError("Read beyond end of sparse file");
    auto locked = data.hold();
    auto const find = [&](std::uint64_t at) { return locked.value.readable(at); };
    readSparse(find, locked.value.isKnown(), *host, position, length, buffer, done);
}

void VFileSparse2::write(std::uint64_t position, std::uint32_t length, void const* buffer,
                         std::shared_ptr<CIO::CIOObject> done) {
    if (!rangeWithin(position, length, length_bytes)) return done->setError("Write beyond end of sparse file");
    // Checked before the map changes: the map of a read-only file is never written.
    if (read_only) return done->setError("Write failed");
    auto locked = data.hold();
    auto const* from = static_cast<std::byte const*>(buffer);
    while (length > 0) {
        HostRange const piece = locked.value.mapRange(*host, position, length);
        if (!piece.error.empty()) return done->setError(piece.error);
        if (piece.length == 0) return done->setError("Software error");
        kassert(piece.length <= std::numeric_limits<std::uint32_t>::max(), "vfilesparse2", __LINE__,
                "length <= UINT_MAX");
        auto const step = static_cast<std::uint32_t>(std::min<std::uint64_t>(piece.length, length));
        writePiece(locked.value, position, piece.host, step, from, done);
        position += step;
        length -= step;
        from += step;
    }
}

void VFileSparse2::writePiece(DataStruct& log, std::uint64_t position, std::uint64_t host_position,
                              std::uint32_t length, std::byte const* from,
                              std::shared_ptr<CIO::CIOObject> const& done) {
    if (!log.unlanded.overlap(position, length)) return host->write(host_position, length, from, done);
    auto landing = CIO::makeCompletion<Landing>(std::static_pointer_cast<VFileSparse2>(shared_from_this()), position,
                                                length, done);
    if (!log.unlanded.begin(position, length)) return done->setError("Write failed");
    landing->tracked = true;
    try {
        host->write(host_position, length, from, landing);
    } catch (...) {
        landing->setOutOfMemory();  // it has not landed
        throw;
    }
}

std::uint64_t VFileSparse2::unreplayedBytes() {
    return std::max(data.hold().value.unreplayed_bytes, host->unreplayedBytes());
}

std::uint64_t VFileSparse2::allocatedFrom(std::uint64_t position) {
    auto locked = data.hold();
    return locked.value.filemap.contiguousFrom(position);
}

void VFileSparse2::allocate(std::uint64_t position, std::uint32_t length) {
    if (read_only || !rangeWithin(position, length, length_bytes)) return;
    auto locked = data.hold();
    while (length > 0) {
        auto const extent = locked.value.filemap.atOrAfter(position);
        bool const stored = extent && extent->start <= position;
        HostRange const piece = locked.value.mapRange(*host, position, length);
        // A failure is not reported here; the following write will report it.
        if (!piece.error.empty() || piece.length == 0) return;
        if (!kassert(piece.length <= length, "vfilesparse2", __LINE__, "actual_length <= len")) return;
        auto const step = static_cast<std::uint32_t>(piece.length);
        if (!stored) host->allocate(piece.host, step);
        position += step;
        length -= step;
    }
}

}  // namespace KelvonClip
