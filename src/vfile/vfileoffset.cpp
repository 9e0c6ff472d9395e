#include "vfile/vfileoffset.h"

#include <limits>
#include <utility>

#include "vfile/shared_files.h"

namespace KelvonClip {

namespace {

using Registry = SharedFiles<std::pair<VFileObject const*, std::uint64_t>, VFileOffset>;

// Made on first use and never destroyed: files may still be closing when the library's statics go.
Registry& registry() {
    static Registry& files = *new Registry;
    return files;
}

}  // namespace

Opened<VFileOffset> VFileOffset::section(std::shared_ptr<VFileObject> file, std::uint64_t offset) {
    return registry().open({file.get(), offset}, file, [&]() -> MadeFile<VFileOffset> {
        return {{}, std::make_unique<VFileOffset>(file, offset)};
    });
}

// Whether the range has 64-bit positions in the file below.
bool VFileOffset::reaches(std::uint64_t position, std::uint64_t length) const {
    return rangeWithin(position, length, std::numeric_limits<std::uint64_t>::max() - offset);
}

std::uint64_t VFileOffset::length() {
    std::uint64_t const below = file->length();
    return below > offset ? below - offset : 0;
}

void VFileOffset::read(std::uint64_t position, std::uint32_t length, void* buffer,
                       std::shared_ptr<CIO::CIOObject> done) {
    if (!reaches(position, length)) return done->setError("Attempt to read past end of file section");
    file->read(position + offset, length, buffer, std::move(done));
}

void VFileOffset::write(std::uint64_t position, std::uint32_t length, void const* buffer,
                        std::shared_ptr<CIO::CIOObject> done) {
    if (!reaches(position, length)) return done->setError("Attempt to write past end of file section");
    file->write(position + offset, length, buffer, std::move(done));
}

KString VFileOffset::name() { return file->name(); }

std::uint64_t VFileOffset::allocatedFrom(std::uint64_t position) {
    return reaches(position, 0) ? file->allocatedFrom(position + offset) : 0;
}

void VFileOffset::allocate(std::uint64_t position, std::uint32_t length) {
    if (reaches(position, length)) file->allocate(position + offset, length);
}

void VFileOffset::releaseAllocation() { file->releaseAllocation(); }

}  // namespace KelvonClip
