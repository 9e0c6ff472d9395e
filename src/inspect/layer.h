// The stack of virtual files of a track as its header describes it, built for reading alone: nothing of it is shared
// with openers, and no container is trusted. Each level offers its bytes as a file and says where in the host file they
// are.
//
// Threads: one user at a time.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "foundation/kstring.h"
#include "vfile/extent_map.h"
#include "vfile/vfile_builder.h"
#include "vfile/vfileobject.h"

namespace KelvonClip::inspect {

struct Layer {
    VFileKind kind = VFileKind::none;
    std::shared_ptr<Layer const> below;  // null at the bottom
    KString path;                        // of a file of its own
    std::uint64_t start = 0;             // the byte of the level below at which byte 0 of this one is
    std::uint64_t length = 0;            // bytes that it claims to have
    ExtentMap map;                       // of a sparse file
    std::shared_ptr<VFileObject> file;   // its bytes
    bool map_is_known = true;            // to its end: no block of it was unreadable

    // How the bytes from `position` on are kept: the next `length` of them, at most `most`, are all stored or all not.
    // Those that are stored lie together in the host file, from byte `host` on.
    struct Reach {
        std::uint64_t length;
        bool stored;
        std::uint64_t host = 0;
    };
    Reach reach(std::uint64_t position, std::uint64_t most) const;

    // The byte of the host file at the bottom; absent where nothing is stored.
    std::optional<std::uint64_t> hostByte(std::uint64_t position) const;
    // The level at the bottom.
    Layer const& bottom() const;
    bool isSparse() const { return kind == VFileKind::sparse1 || kind == VFileKind::sparse2; }
};

// The bytes of a sparse file whose map was read.
std::shared_ptr<VFileObject> sparseView(std::shared_ptr<VFileObject> host, std::shared_ptr<Layer const> const& layer);

}  // namespace KelvonClip::inspect
