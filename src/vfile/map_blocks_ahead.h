// Reads the blocks of a sparse map for a replay, ahead of it: the superblock says where they are.
//
//     replay:            block 9 |
//     read, or on the way:       | 10 11 12 13 | 14 15 16 17 | ...     pieces of one run each, several at once
//
// What the superblock says ahead of the replay is not checked against the log yet. It only decides what is read; the
// replay asks for each block by its position, and a block that was not read ahead is read by itself.
//
// Invariant: what is held is of constant size, whatever the file says.
// Threads: one. Waits are alertable.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "foundation/ksemaphore.h"
#include "platform/scratch_memory.h"
#include "vfile/sparse2_format.h"
#include "vfile/vfileobject.h"

namespace KelvonClip {

class MapBlocksAhead {
  public:
    explicit MapBlocksAhead(VFileObject& host_file) : host(host_file) {}
    ~MapBlocksAhead();
    MapBlocksAhead(MapBlocksAhead const&) = delete;
    MapBlocksAhead& operator=(MapBlocksAhead const&) = delete;

    // Reads the superblock, which must be done first. Empty on success.
    KString readSuperblock();
    std::byte const* superblock() const { return blocks.data(); }

    // The block with this number, which is at `position`; valid until the next call. Numbers only increase. Null if it
    // cannot be read. Throws std::bad_alloc.
    std::byte const* block(std::uint32_t number, std::uint64_t position);

  private:
    static constexpr std::uint32_t BLOCKS_IN_PIECE = 4, PIECES = 8;
    // Small maps are read block by block: reading ahead would take more memory than they have.
    static constexpr std::uint32_t FIRST_AHEAD = 4;

    // Blocks that are behind each other in the host.
    struct Piece {
        std::uint32_t first = 0, count = 0;
        std::uint64_t position = 0;
        KSemaphore read{0};
        bool waited_for = false, out_of_memory = false;
        KString error;
    };

    std::byte const* single(std::uint64_t position);
    void readAhead(std::uint32_t number);
    bool askForNext();
    Piece& piece(std::uint32_t index) { return pieces.at(index % PIECES); }
    std::byte* memoryOf(std::uint32_t index) const {
        return window->data() + std::size_t{index % PIECES} * BLOCKS_IN_PIECE * sparse2::BLOCK_SIZE;
    }
    static void waitFor(Piece& piece);

    VFileObject& host;
    std::uint64_t host_end = 0;
    platform::ScratchMemory const blocks{platform::ScratchMemory::Size::small};  // the superblock and a single block
    std::optional<platform::ScratchMemory> window;                               // of all pieces
    std::array<Piece, PIECES> pieces;
    std::uint32_t next_block = 0;       // the first that was not asked for
    std::uint32_t done = 0, asked = 0;  // pieces; those between are used next, in this order
};

}  // namespace KelvonClip
