#include "vfile/vfilelimit.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "vfile/shared_files.h"

namespace KelvonClip {

namespace {

using Registry = SharedFiles<std::pair<VFileObject const*, std::uint64_t>, VFileLimit>;

// Made on first use and never destroyed: files may still be closing when the library's statics go.
Registry& registry() {
    static Registry& files = *new Registry;
    return files;
}

}  // namespace

Opened<VFileLimit> VFileLimit::section(std::shared_ptr<VFileObject> file, std::uint64_t limit) {
    return registry().open({file.get(), limit}, file, [&]() -> MadeFile<VFileLimit> {
        return {{}, std::make_unique<VFileLimit>(file, limit)};
    });
}

std::uint64_t VFileLimit::length() { return std::min(file->length(), limit); }

void VFileLimit::read(std::uint64_t position, std::uint32_t length, void* buffer,
                      std::shared_ptr<CIO::CIOObject> done) {
    if (!rangeWithin(position, length, limit)) return done->setError("Attempt to read past end of file section");
    file->read(position, length, buffer, std::move(done));
}

void VFileLimit::write(std::uint64_t position, std::uint32_t length, void const* buffer,
                       std::shared_ptr<CIO::CIOObject> done) {
    if (!rangeWithin(position, length, limit)) return done->setError("Attempt to write past end of file section");
    file->write(position, length, buffer, std::move(done));
}

KString VFileLimit::name() { return file->name(); }

std::uint64_t VFileLimit::allocatedFrom(std::uint64_t position) {
    if (position >= limit) return 0;
    return std::min(limit - position, file->allocatedFrom(position));
}

void VFileLimit::allocate(std::uint64_t position, std::uint32_t length) {
    if (position >= limit) return;
    std::uint64_t const room = std::min<std::uint64_t>(limit - position, std::numeric_limits<std::uint32_t>::max());
    auto const count = static_cast<std::uint32_t>(std::min<std::uint64_t>(room, length));
    if (count > 0) file->allocate(position, count);
}

void VFileLimit::releaseAllocation() { file->releaseAllocation(); }

}  // namespace KelvonClip
