// vfilelimit: at most the first `limit` bytes of another virtual file, its host.
//
// Positions are those of the host. A read or write may end exactly at the limit. One that ends past it is refused
// completely; nothing is issued.
// Threads: any; the section has no mutable state.
#pragma once

#include <cstdint>
#include <memory>
#include <utility>

#include "vfile/vfilehosted.h"

namespace KelvonClip {

class VFileLimit : public VFileHosted {
  public:
    // The first `limit` bytes of `host`. Openers of the same section share one object.
    static Opened<VFileLimit> section(std::shared_ptr<VFileObject> host, std::uint64_t limit);

    VFileLimit(std::shared_ptr<VFileObject> host_file, std::uint64_t limit_bytes)
        : VFileHosted(std::move(host_file)), limit(limit_bytes) {}

    std::uint64_t length() override;  // the smaller of the limit and the host's length
    void read(std::uint64_t position, std::uint32_t length, void* buffer,
              std::shared_ptr<CIO::CIOObject> done) override;
    void write(std::uint64_t position, std::uint32_t length, void const* buffer,
               std::shared_ptr<CIO::CIOObject> done) override;
    std::uint64_t allocatedFrom(std::uint64_t position) override;
    void allocate(std::uint64_t position, std::uint32_t length) override;

  private:
    std::uint64_t const limit;
};

}  // namespace KelvonClip
