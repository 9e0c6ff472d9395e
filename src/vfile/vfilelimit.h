// vfilelimit: the first `limit` bytes of another virtual file, at most.
//
// Positions are those of the file below. A read or write may end exactly at the limit; one that passes it is refused
// whole, and nothing is issued.
// Threads: any; the section keeps no state beside its constant fields.
#pragma once

#include "vfile/vfileobject.h"

namespace KelvonClip {

class VFileLimit : public VFileObject {
  public:
    // The first `limit` bytes of `file`. Openers of the same section share one object.
    static Opened<VFileLimit> section(std::shared_ptr<VFileObject> file, std::uint64_t limit);

    VFileLimit(std::shared_ptr<VFileObject> file_below, std::uint64_t limit_bytes)
        : file(std::move(file_below)), limit(limit_bytes) {}

    std::uint64_t length() override;  // the shorter of the limit and the file below
    void read(std::uint64_t position, std::uint32_t length, void* buffer,
              std::shared_ptr<CIO::CIOObject> done) override;
    void write(std::uint64_t position, std::uint32_t length, void const* buffer,
               std::shared_ptr<CIO::CIOObject> done) override;
    KString name() override;
    std::uint64_t allocatedFrom(std::uint64_t position) override;
    void allocate(std::uint64_t position, std::uint32_t length) override;
    void releaseAllocation() override;

  private:
    std::shared_ptr<VFileObject> const file;
    std::uint64_t const limit;
};

}  // namespace KelvonClip
