#include "vfile/vfilegrow.h"

#include <array>
#include <cstring>
#include <exception>
#include <limits>
#include <utility>

#include "foundation/load_store.h"
#include "vfile/shared_files.h"

namespace KelvonClip {

namespace {

namespace header {  // big-endian; docs/format.md, "Grow container"
constexpr std::uint32_t SIZE = 4096;
constexpr std::array<unsigned char, 8> MAGIC{0x4B, 0x4C, 0x56, 0x4E, 0x47, 0x52, 0x4F, 0x57};
constexpr std::size_t LENGTH_AT = 8;  // bytes of data
}  // namespace header

// Host byte of the file's byte 0, and the greatest length whose bytes all have a 64-bit host position.
constexpr std::uint64_t DATA_AT = header::SIZE;
constexpr std::uint64_t GREATEST_LENGTH = std::numeric_limits<std::uint64_t>::max() - DATA_AT;

using Registry = SharedFiles<VFileObject const*, VFileGrow>;

// Made on first use and never destroyed: files may still be closing when the library's statics go.
Registry& registry() {
    static Registry& files = *new Registry;
    return files;
}

}  // namespace

VFileGrow::VFileGrow(std::shared_ptr<VFileObject> host_file, AlignedBuffer header_bytes)
    : host(std::move(host_file)), header_block(std::move(header_bytes)),
      length_bytes(loadBE64(header_block.data() + header::LENGTH_AT)) {}

Opened<VFileGrow> VFileGrow::open(std::shared_ptr<VFileObject> host, bool /*read_only*/) {
    return registry().open(host.get(), host, [&]() -> MadeFile<VFileGrow> {
        AlignedBuffer block(header::SIZE);
        if (KString error = host->readSync(0, header::SIZE, block.data()); !error.empty())
            return {std::move(error), nullptr};
        if (std::memcmp(block.data(), header::MAGIC.data(), header::MAGIC.size()) != 0)
            return {u"Bad grow header magic number", nullptr};
        return {{}, std::unique_ptr<VFileGrow>(new VFileGrow(host, std::move(block)))};
    });
}

KString VFileGrow::create(std::shared_ptr<VFileObject> const& host) {
    char const* const refusal = "Cannot create grow-block while same block is already open";
    return registry().whileClosed(host.get(), host, refusal, [&] {
        AlignedBuffer block(header::SIZE);
        std::memcpy(block.data(), header::MAGIC.data(), header::MAGIC.size());
        return host->writeSync(0, header::SIZE, block.data());
    });
}

VFileGrow::~VFileGrow() {
    if (!header_dirty) return;
    try {
        storeBE64(header_block.data() + header::LENGTH_AT, length_bytes);
        (void)host->writeSync(0, header::SIZE, header_block.data());  // nobody is left to tell
    } catch (std::exception const&) {
        // Out of memory: as little to be done as about an error of the host.
    }
}

std::uint64_t VFileGrow::length() { return length_bytes; }

void VFileGrow::read(std::uint64_t position, std::uint32_t length, void* buffer, std::shared_ptr<CIO::CIOObject> done) {
    if (!rangeWithin(position, length, length_bytes) || !rangeWithin(position, length, GREATEST_LENGTH))
        return done->setError("Read beyond end of grow file");
    if (length == 0) return;
    host->read(position + DATA_AT, length, buffer, std::move(done));
}

void VFileGrow::write(std::uint64_t position, std::uint32_t length, void const* buffer,
                      std::shared_ptr<CIO::CIOObject> done) {
    if (!rangeWithin(position, length, GREATEST_LENGTH)) return done->setError("Write beyond end of grow file");
    if (length == 0) return;
    std::uint64_t const end = position + length;
    if (end <= length_bytes) return host->write(position + DATA_AT, length, buffer, std::move(done));

    if (KString const error = host->writeSync(position + DATA_AT, length, buffer); !error.empty())
        return done->setError(error);
    // KEEP: also when a write to a larger end has landed meanwhile; extending writes come from one writer, rising.
    length_bytes = end;
    header_dirty = true;
}

KString VFileGrow::name() { return host->name(); }

std::uint64_t VFileGrow::allocatedFrom(std::uint64_t position) {
    return position <= GREATEST_LENGTH ? host->allocatedFrom(position + DATA_AT) : 0;
}

void VFileGrow::allocate(std::uint64_t position, std::uint32_t length) {
    if (rangeWithin(position, length, GREATEST_LENGTH)) host->allocate(position + DATA_AT, length);
}

void VFileGrow::releaseAllocation() { host->releaseAllocation(); }

}  // namespace KelvonClip
