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
    bool lengthIsKnown() override { return host->lengthIsKnown(); }
    KString name() override { return host->name(); }
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
