// vfileoffset: the part of another virtual file that begins at a fixed byte.
//
// Byte p of the section is byte p + offset of the file below. The section makes no range check of its own: bounds come
// from a VFileLimit above or below it. Only a position that has no 64-bit counterpart below is refused.
// Threads: any; the section keeps no state beside its constant fields.
#pragma once

#include "vfile/vfileobject.h"

namespace KelvonClip {

class VFileOffset : public VFileObject {
  public:
    // The section of `file` that begins at byte `offset`. Openers of the same section share one object.
    static Opened<VFileOffset> section(std::shared_ptr<VFileObject> file, std::uint64_t offset);

    VFileOffset(std::shared_ptr<VFileObject> file_below, std::uint64_t offset_bytes)
        : file(std::move(file_below)), offset(offset_bytes) {}

    std::uint64_t length() override;  // 0 when the file below ends before the section begins
    void read(std::uint64_t position, std::uint32_t length, void* buffer,
              std::shared_ptr<CIO::CIOObject> done) override;
    void write(std::uint64_t position, std::uint32_t length, void const* buffer,
               std::shared_ptr<CIO::CIOObject> done) override;
    KString name() override;
    std::uint64_t allocatedFrom(std::uint64_t position) override;
    void allocate(std::uint64_t position, std::uint32_t length) override;
    void releaseAllocation() override;

  private:
    bool reaches(std::uint64_t position, std::uint64_t length) const;

    std::shared_ptr<VFileObject> const file;
    std::uint64_t const offset;
};

}  // namespace KelvonClip
