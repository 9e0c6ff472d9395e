#include "vfile/map_blocks_ahead.h"

#include <algorithm>
#include <limits>
#include <memory>
#include <new>
#include <utility>

namespace KelvonClip {

using namespace sparse2;

// Requests that are under way write to the memory.
MapBlocksAhead::~MapBlocksAhead() {
    for (; done < asked; ++done)
        waitFor(piece(done));
}

KString MapBlocksAhead::readSuperblock() {
    static_assert(static_cast<std::size_t>(platform::ScratchMemory::Size::small) >= 2 * std::size_t{BLOCK_SIZE});
    static_assert(static_cast<std::size_t>(platform::ScratchMemory::Size::large) ==
                  std::size_t{PIECES} * BLOCKS_IN_PIECE * BLOCK_SIZE);
    host_end = host.length();
    return host.readSync(0, BLOCK_SIZE, blocks.data());
}

std::byte const* MapBlocksAhead::block(std::uint32_t number, std::uint64_t position) {
    if (number < FIRST_AHEAD) return single(position);
    readAhead(number);
    if (done == asked) return single(position);
    Piece& ahead = piece(done);
    std::uint64_t const offset = std::uint64_t{number - ahead.first} * BLOCK_SIZE;
    if (number < ahead.first || position != ahead.position + offset) return single(position);
    waitFor(ahead);
    if (ahead.out_of_memory) throw std::bad_alloc();
    // Only one of its blocks may be unreadable.
    if (!ahead.error.empty()) return single(position);
    return memoryOf(done) + static_cast<std::size_t>(offset);
}

std::byte const* MapBlocksAhead::single(std::uint64_t position) {
    std::byte* const memory = blocks.data() + BLOCK_SIZE;
    return host.readSync(position, BLOCK_SIZE, memory).empty() ? memory : nullptr;
}

// Gives up the pieces before the block, and asks for as many as there is room for.
void MapBlocksAhead::readAhead(std::uint32_t number) {
    if (!window) window.emplace(platform::ScratchMemory::Size::large);
    next_block = std::max(next_block, number);
    for (; done < asked && piece(done).first + piece(done).count <= number; ++done)
        waitFor(piece(done));
    while (asked - done < PIECES && askForNext()) {
    }
}

// False if the superblock has no further blocks inside the host.
bool MapBlocksAhead::askForNext() {
    if (next_block >= MAX_REPLAYED_BLOCKS) return false;
    BlockPlace const place = placeOf(next_block);
    auto const run = sectorsToBytes(loadBE64(superblock() + runEntryAt(place.run)));
    if (!run || *run == 0 || *run >= host_end) return false;
    std::uint64_t const begin = std::uint64_t{place.index} * BLOCK_SIZE;
    if (begin > host_end - *run) return false;
    std::uint64_t const room = (host_end - *run - begin) / BLOCK_SIZE;
    std::uint32_t const left = runSize(place.run) - place.index;
    auto const count = static_cast<std::uint32_t>(std::min<std::uint64_t>({BLOCKS_IN_PIECE, left, room}));
    if (count == 0) return false;

    Piece& next = piece(asked);
    next.first = next_block;
    next.count = count;
    next.position = *run + begin;
    next.waited_for = next.out_of_memory = false;
    next.error = {};
    auto helper = CIO::makeCompletion<CIO::CIOSyncHelper>(next.read, next.error, next.out_of_memory);
    std::byte* const memory = memoryOf(asked);
    ++asked;
    next_block += count;
    host.read(next.position, count * BLOCK_SIZE, memory, std::move(helper));
    return true;
}

void MapBlocksAhead::waitFor(Piece& piece) {
    if (!piece.waited_for) piece.read.wait();
    piece.waited_for = true;
}

}  // namespace KelvonClip
