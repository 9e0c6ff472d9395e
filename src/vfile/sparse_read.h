// The read loop of both sparse formats.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>

#include "vfile/extent_map.h"
#include "vfile/vfileobject.h"

namespace KelvonClip {

// A map that is not known to its end, because the host could not read one of its blocks.
constexpr char const* SPARSE_MAP_UNREADABLE = "Sparse map is unreadable";

// True if a map block that could not be read is inside the host. It may be readable later, so what it records still
// exists. A block past the end of the host is simply not there.
inline bool isInsideHost(VFileObject& host, std::uint64_t position, std::uint64_t block_size) {
    return !host.lengthIsKnown() || rangeWithin(position, block_size, host.length());
}

// Reads a range piece by piece: data in an extent is read from the host, with the same completion object; between
// extents the buffer is filled with zeros. If the map is not known to its end, there may be data between extents, so
// such a read fails. `find` returns the extent that contains a position or else the next one; it is called for each
// piece. The caller has checked the range.
template <class Find>
void readSparse(Find&& find, bool map_is_known, VFileObject& host, std::uint64_t position, std::uint32_t length,
                void* buffer, std::shared_ptr<CIO::CIOObject> const& done) {
    auto* to = static_cast<std::byte*>(buffer);
    while (length > 0) {
        std::optional<Extent> const extent = find(position);
        std::uint64_t step = 0;
        if (!extent || extent->start > position) {
            if (!map_is_known) return done->setError(SPARSE_MAP_UNREADABLE);
            step = extent ? std::min<std::uint64_t>(length, extent->start - position) : length;
            std::memset(to, 0, static_cast<std::size_t>(step));
        } else if (std::uint64_t const offset = position - extent->start; offset < extent->length) {
            step = std::min<std::uint64_t>(length, extent->length - offset);
            host.read(extent->host + offset, static_cast<std::uint32_t>(step), to, done);
        }
        if (step == 0) return done->setError("Software error");
        position += step;
        length -= static_cast<std::uint32_t>(step);
        to += step;
    }
}

}  // namespace KelvonClip
