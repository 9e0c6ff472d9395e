#include "vfile/vfilesparse1.h"

#include <cstring>
#include <limits>
#include <optional>
#include <utility>

#include "vfile/aligned_buffer.h"
#include "vfile/shared_files.h"
#include "vfile/sparse1_format.h"
#include "vfile/sparse_read.h"

namespace KelvonClip {

namespace {

namespace map_block = sparse1::map_block;

using Registry = SharedFiles<VFileObject const*, VFileSparse1>;

// One 16384-byte map block.
struct BlockBufStruct1 {
    AlignedBuffer bytes{map_block::SIZE};

    bool hasMagic() const { return std::memcmp(bytes.data(), map_block::MAGIC.data(), map_block::MAGIC.size()) == 0; }
    std::uint64_t nextSector() const { return loadBE64(bytes.data() + map_block::NEXT_AT); }
    std::uint64_t fileLength() const { return loadBE64(bytes.data() + map_block::LENGTH_AT); }
    ExtentRecord record(std::size_t k) const {
        return ExtentRecord::decode(bytes.field<ExtentRecord::SIZE>(map_block::RECORDS_AT + k * ExtentRecord::SIZE));
    }
};

// Follows the chain of map blocks. Each block starts where the data of the previous one ends, so positions only
// increase and the chain ends at the end of the host at the latest.
struct ChainWalk {
    std::uint64_t length = 0;
    ExtentMap map;
    bool unreadable = false;  // the walk ended at a block inside the host that could not be read

    // Empty on success, even if damage ends the map early.
    KString run(VFileObject& host) {
        BlockBufStruct1 block;
        if (KString error = host.readSync(0, map_block::SIZE, block.bytes.data()); !error.empty()) return error;
        if (!block.hasMagic()) return "Bad sparse header magic number";
        length = block.fileLength();
        std::uint64_t position = 0;
        while (auto const next = takeIn(block, position)) {
            position = *next;
            if (!rangeWithin(position, map_block::SIZE, length)) break;
            if (!host.readSync(position, map_block::SIZE, block.bytes.data()).empty()) {
                unreadable = isInsideHost(host, position, map_block::SIZE);
                break;
            }
            if (!block.hasMagic()) break;
        }
        return {};
    }

    // Adds the records of the block at `position` to the map. Returns the position of the next block, or nothing if the
    // map ends.
    std::optional<std::uint64_t> takeIn(BlockBufStruct1 const& block, std::uint64_t position) {
        if (!rangeWithin(position, map_block::SIZE, std::numeric_limits<std::uint64_t>::max())) return std::nullopt;
        std::uint64_t data_at = position + map_block::SIZE;
        for (std::size_t k = 0; k < map_block::MAX_RECORDS; ++k) {
            ExtentRecord const record = block.record(k);
            auto const start = sectorsToBytes(record.start), bytes = sectorsToBytes(record.length);
            if (!start || !bytes || *bytes == 0 || !rangeWithin(data_at, *bytes, length)) return std::nullopt;
            if (!map.insert({*start, *bytes, data_at})) return std::nullopt;
            data_at += *bytes;
        }
        auto const next = sectorsToBytes(block.nextSector());
        return next == data_at ? next : std::nullopt;
    }
};

}  // namespace

VFileSparse1::VFileSparse1(std::shared_ptr<VFileObject> host_file, std::uint64_t file_length, ExtentMap extents,
                           bool map_known)
    : VFileHosted(std::move(host_file)), length_bytes(file_length), map(std::move(extents)), map_is_known(map_known) {}

Opened<VFileSparse1> VFileSparse1::open(std::shared_ptr<VFileObject> host, bool /*read_only*/) {
    return Registry::ofProcess().open(host.get(), host, [&]() -> MadeFile<VFileSparse1> {
        ChainWalk walk;
        if (KString error = walk.run(*host); !error.empty()) return {std::move(error), nullptr};
        return {
            {},
            std::unique_ptr<VFileSparse1>(new VFileSparse1(host, walk.length, std::move(walk.map), !walk.unreadable))};
    });
}

void VFileSparse1::read(std::uint64_t position, std::uint32_t length, void* buffer,
                        std::shared_ptr<CIO::CIOObject> done) {
    if (!rangeWithin(position, length, length_bytes)) return done->setError("Read beyond end of sparse file");
    auto locked = map.hold();
    auto const find = [&](std::uint64_t at) { return locked.value.atOrAfter(at); };
    readSparse(find, map_is_known, *host, position, length, buffer, done);
}

void VFileSparse1::write(std::uint64_t, std::uint32_t, void const*, std::shared_ptr<CIO::CIOObject> done) {
    done->setError("Not implemented");
}

}  // namespace KelvonClip
