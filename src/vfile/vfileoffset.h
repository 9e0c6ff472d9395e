// vfileoffset: the part of another virtual file, its host, that begins at a fixed byte.
//
// Byte p of the section is host byte p + offset. The section makes no range check of its own: bounds come from a
// VFileLimit above or below it. Only a position that has no 64-bit counterpart in the host is refused.
// Threads: any; the section keeps no state beside its constant fields.
#pragma once

#include "vfile/vfilehosted.h"

namespace KelvonClip {

class VFileOffset : public VFileHosted {
  public:
    // The section of `host` that begins at byte `offset`. Openers of the same section share one object.
    static Opened<VFileOffset> section(std::shared_ptr<VFileObject> host, std::uint64_t offset);

    VFileOffset(std::shared_ptr<VFileObject> host_file, std::uint64_t offset_bytes)
        : VFileHosted(std::move(host_file)), offset(offset_bytes) {}

    std::uint64_t length() override;  // 0 when the host ends before the section begins
    void read(std::uint64_t position, std::uint32_t length, void* buffer,
              std::shared_ptr<CIO::CIOObject> done) override;
    void write(std::uint64_t position, std::uint32_t length, void const* buffer,
               std::shared_ptr<CIO::CIOObject> done) override;
    std::uint64_t allocatedFrom(std::uint64_t position) override;
    void allocate(std::uint64_t position, std::uint32_t length) override;

  private:
    bool reaches(std::uint64_t position, std::uint64_t length) const;

    std::uint64_t const offset;
};

}  // namespace KelvonClip
