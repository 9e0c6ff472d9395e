#include "vfile/vfilelimit.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "vfile/shared_files.h"

namespace KelvonClip {

namespace {

using Registry = SharedFiles<std::pair<VFileObject const*, std::uint64_t>, VFileLimit>;

}  // namespace

Opened<VFileLimit> VFileLimit::section(std::shared_ptr<VFileObject> host, std::uint64_t limit) {
    return Registry::ofProcess().open({host.get(), limit}, host, [&]() -> MadeFile<VFileLimit> {
        return {{}, std::make_unique<VFileLimit>(host, limit)};
    });
}

std::uint64_t VFileLimit::length() { return std::min(host->length(), limit); }

void VFileLimit::read(std::uint64_t position, std::uint32_t length, void* buffer,
                      std::shared_ptr<CIO::CIOObject> done) {
    if (!rangeWithin(position, length, limit)) return done->setError("Attempt to read past end of file section");
    host->read(position, length, buffer, std::move(done));
}

void VFileLimit::write(std::uint64_t position, std::uint32_t length, void const* buffer,
                       std::shared_ptr<CIO::CIOObject> done) {
    if (!rangeWithin(position, length, limit)) return done->setError("Attempt to write past end of file section");
    host->write(position, length, buffer, std::move(done));
}

std::uint64_t VFileLimit::allocatedFrom(std::uint64_t position) {
    if (position >= limit) return 0;
    return std::min(limit - position, host->allocatedFrom(position));
}

void VFileLimit::allocate(std::uint64_t position, std::uint32_t length) {
    if (position >= limit) return;
    std::uint64_t const room = std::min<std::uint64_t>(limit - position, std::numeric_limits<std::uint32_t>::max());
    auto const count = static_cast<std::uint32_t>(std::min<std::uint64_t>(room, length));
    if (count > 0) host->allocate(position, count);
}

}  // namespace KelvonClip
