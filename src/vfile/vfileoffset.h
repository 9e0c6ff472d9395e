// vfileoffset: the part of another virtual file, its host, that starts at a fixed position.
//
// Byte p of the section is host byte p + offset. The section does not check ranges; a VFileLimit above or below it
// does. Only positions that exceed 64 bits in the host are refused.
// Threads: any; the section has no mutable state.
#pragma once

#include <cstdint>
#include <memory>
#include <utility>

#include "vfile/vfilehosted.h"

namespace KelvonClip {

class VFileOffset : public VFileHosted {
  public:
    // The section of `host` that starts at byte `offset`. Openers of the same section share one object.
    static Opened<VFileOffset> section(std::shared_ptr<VFileObject> host, std::uint64_t offset);

    VFileOffset(std::shared_ptr<VFileObject> host_file, std::uint64_t offset_bytes)
        : VFileHosted(std::move(host_file)), offset(offset_bytes) {}

    std::uint64_t length() override;  // 0 if the host ends before the section starts
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
