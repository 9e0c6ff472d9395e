#include "inspect/layer.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "vfile/sparse_read.h"
#include "vfile/vfilehosted.h"

namespace KelvonClip::inspect {

namespace {

// Reads only. The layer outlives the view: it owns it.
class SparseView : public VFileHosted {
  public:
    SparseView(std::shared_ptr<VFileObject> host_file, Layer const& sparse)
        : VFileHosted(std::move(host_file)), layer(sparse) {}

    std::uint64_t length() override { return layer.length; }
    void read(std::uint64_t position, std::uint32_t count, void* buffer,
              std::shared_ptr<CIO::CIOObject> done) override {
        if (!rangeWithin(position, count, layer.length)) return done->setError("Read beyond end of sparse file");
        auto const find = [&](std::uint64_t at) { return layer.map.atOrAfter(at); };
        readSparse(find, layer.map_is_known, *host, position, count, buffer, done);
    }
    void write(std::uint64_t, std::uint32_t, void const*, std::shared_ptr<CIO::CIOObject> done) override {
        done->setError("Write failed");
    }

  private:
    Layer const& layer;
};

}  // namespace

std::shared_ptr<VFileObject> sparseView(std::shared_ptr<VFileObject> host, std::shared_ptr<Layer const> const& layer) {
    return std::make_shared<SparseView>(std::move(host), *layer);
}

Layer::Reach Layer::reach(std::uint64_t position, std::uint64_t most) const {
    if (position >= length) return {most, false};
    std::uint64_t const inside = std::min(most, length - position);
    if (!below) return {inside, true, start + position};
    if (!isSparse()) {
        if (start > std::numeric_limits<std::uint64_t>::max() - position) return {inside, false};
        return below->reach(start + position, inside);
    }
    auto const extent = map.atOrAfter(position);
    if (!extent) return {inside, false};
    if (extent->start > position) return {std::min(inside, extent->start - position), false};
    std::uint64_t const offset = position - extent->start;
    return below->reach(extent->host + offset, std::min(inside, extent->length - offset));
}

std::optional<std::uint64_t> Layer::hostByte(std::uint64_t position) const {
    if (!below) return start + position;
    if (!isSparse()) return below->hostByte(start + position);
    auto const extent = map.atOrAfter(position);
    if (!extent || extent->start > position) return std::nullopt;
    return below->hostByte(extent->host + (position - extent->start));
}

Layer const& Layer::bottom() const {
    Layer const* level = this;
    while (level->below)
        level = level->below.get();
    return *level;
}

}  // namespace KelvonClip::inspect
