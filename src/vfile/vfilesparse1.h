// vfilesparse1: the older sparse format, read only.
//
// Stands on any other VFileObject, its host, which stores only the ranges that were written; the others read as zeros.
// The host is a chain of map blocks, each followed by the data of its records (docs/format.md, "Sparse format 1"). The
// whole chain is read when the file is opened.
//
// Invariants: the map never changes after opening; extents never overlap.
// Threads: any.
#pragma once

#include <cstdint>
#include <memory>

#include "foundation/kprotect.h"
#include "vfile/extent_map.h"
#include "vfile/vfilehosted.h"

namespace KelvonClip {

class VFileSparse1 : public VFileHosted {
  public:
    // Opens the sparse file in `host`; all openers share one object. Errors: the host's, if the first map block cannot
    // be read; "Bad sparse header magic number". Later damage only ends the map; if it is a block inside the host that
    // cannot be read, reads of what the map does not have fail with "Sparse map is unreadable".
    static Opened<VFileSparse1> open(std::shared_ptr<VFileObject> host, bool read_only);

    std::uint64_t length() override { return length_bytes; }
    bool lengthIsKnown() override { return true; }
    void read(std::uint64_t position, std::uint32_t length, void* buffer,
              std::shared_ptr<CIO::CIOObject> done) override;
    void write(std::uint64_t position, std::uint32_t length, void const* buffer,
               std::shared_ptr<CIO::CIOObject> done) override;  // always "Not implemented"
    std::uint64_t allocatedFrom(std::uint64_t) override { return 4294967295; }
    void allocate(std::uint64_t, std::uint32_t) override {}
    void releaseAllocation() override {}
    bool isContainer() const override { return true; }

  private:
    VFileSparse1(std::shared_ptr<VFileObject> host_file, std::uint64_t file_length, ExtentMap extents, bool map_known);

    std::uint64_t const length_bytes;
    KProtect<ExtentMap> map;
    bool const map_is_known;  // to its end; what it does not have reads as zeros only then
};

}  // namespace KelvonClip
