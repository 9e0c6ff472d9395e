#include "vfile/vfileoffset.h"

#include <limits>
#include <utility>

#include "vfile/shared_files.h"

namespace KelvonClip {

namespace {

using Registry = SharedFiles<std::pair<VFileObject const*, std::uint64_t>, VFileOffset>;

}  // namespace

Opened<VFileOffset> VFileOffset::section(std::shared_ptr<VFileObject> host, std::uint64_t offset) {
    return Registry::ofProcess().open({host.get(), offset}, host, [&]() -> MadeFile<VFileOffset> {
        return {{}, std::make_unique<VFileOffset>(host, offset)};
    });
}

// True if all host positions of the range fit into 64 bits.
bool VFileOffset::reaches(std::uint64_t position, std::uint64_t length) const {
    return rangeWithin(position, length, std::numeric_limits<std::uint64_t>::max() - offset);
}

std::uint64_t VFileOffset::length() {
    std::uint64_t const host_length = host->length();
    return host_length > offset ? host_length - offset : 0;
}

void VFileOffset::read(std::uint64_t position, std::uint32_t length, void* buffer,
                       std::shared_ptr<CIO::CIOObject> done) {
    if (!reaches(position, length)) return done->setError("Attempt to read past end of file section");
    host->read(position + offset, length, buffer, std::move(done));
}

void VFileOffset::write(std::uint64_t position, std::uint32_t length, void const* buffer,
                        std::shared_ptr<CIO::CIOObject> done) {
    if (!reaches(position, length)) return done->setError("Attempt to write past end of file section");
    host->write(position + offset, length, buffer, std::move(done));
}

std::uint64_t VFileOffset::allocatedFrom(std::uint64_t position) {
    return reaches(position, 0) ? host->allocatedFrom(position + offset) : 0;
}

void VFileOffset::allocate(std::uint64_t position, std::uint32_t length) {
    if (reaches(position, length)) host->allocate(position + offset, length);
}

}  // namespace KelvonClip
