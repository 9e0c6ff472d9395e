// Reading what another process may be writing at this moment.
#pragma once

#include <cstdint>
#include <cstring>
#include <utility>

#include "vfile/aligned_buffer.h"
#include "vfile/vfileobject.h"

namespace KelvonClip {

// Reads the whole buffer until two readings in a row are equal, so that no half-written block is taken for a whole one.
// Empty on success; the host's error; "Read failed" if the bytes never settle.
inline KString readSettled(VFileObject& host, std::uint64_t position, AlignedBuffer& bytes) {
    constexpr int TRIES = 100;
    host.dropReadAhead();
    auto const length = static_cast<std::uint32_t>(bytes.size());
    if (KString error = host.readSync(position, length, bytes.data()); !error.empty()) return error;
    AlignedBuffer again(bytes.size());
    for (int tries = 0; tries < TRIES; ++tries) {
        if (KString error = host.readSync(position, length, again.data()); !error.empty()) return error;
        if (std::memcmp(bytes.data(), again.data(), bytes.size()) == 0) return {};
        std::swap(bytes, again);
    }
    return "Read failed";
}

}  // namespace KelvonClip
