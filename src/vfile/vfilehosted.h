// vfilehosted: the common base of all virtual files that stand on another one, their host. Forwards every operation to
// the host; derived classes override those that differ.
#pragma once

#include <cstdint>
#include <memory>
#include <utility>

#include "vfile/vfileobject.h"

namespace KelvonClip {

class VFileHosted : public VFileObject {
  public:
    std::uint64_t length() override { return host->length(); }
    bool lengthIsKnown() override { return host->lengthIsKnown(); }
    void read(std::uint64_t position, std::uint32_t length, void* buffer,
              std::shared_ptr<CIO::CIOObject> done) override {
        host->read(position, length, buffer, std::move(done));
    }
    void write(std::uint64_t position, std::uint32_t length, void const* buffer,
               std::shared_ptr<CIO::CIOObject> done) override {
        host->write(position, length, buffer, std::move(done));
    }
    KString name() override { return host->name(); }
    std::uint64_t allocatedFrom(std::uint64_t position) override { return host->allocatedFrom(position); }
    void allocate(std::uint64_t position, std::uint32_t length) override { host->allocate(position, length); }
    void releaseAllocation() override { host->releaseAllocation(); }
    using VFileObject::writeBack;
    KString writeBack(WriteBackStep step, Durability durability) override { return host->writeBack(step, durability); }
    void dropReadAhead() override { host->dropReadAhead(); }
    KString refresh(RefreshStep step) override { return host->refresh(step); }
    bool isContainer() const override { return host->isContainer(); }
    std::uint64_t unreplayedBytes() override { return host->unreplayedBytes(); }
    bool takeMapBlock() override { return host->takeMapBlock(); }
    void giveMapBlocks(std::uint64_t count) override { host->giveMapBlocks(count); }
    bool needsMapRecords() const override { return host->needsMapRecords(); }
    KMutexLock const& writeBackLock() override { return host->writeBackLock(); }
    KString flush() override { return host->flush(); }

  protected:
    explicit VFileHosted(std::shared_ptr<VFileObject> host_file) : host(std::move(host_file)) {}

    std::shared_ptr<VFileObject> const host;
};

}  // namespace KelvonClip
