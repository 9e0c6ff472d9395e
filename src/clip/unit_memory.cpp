#include "clip/unit_memory.h"

#include <cstring>
#include <functional>
#include <map>
#include <utility>

#include "foundation/kprotect.h"
#include "foundation/never_destroyed.h"
#include "platform/transfer_memory.h"

namespace KelvonClip {

namespace {

struct Piece {
    platform::TransferMemory memory;
    std::size_t size;
};
// By address, the highest first, so that lower_bound finds the piece that begins at or before an address.
using Pieces = std::map<std::byte const*, Piece, std::greater<>>;

KProtect<Pieces>& pieces() {
    static auto& all = neverDestroyed<KProtect<Pieces>>();
    return all;
}

}  // namespace

std::byte* allocateUnitMemory(std::size_t bytes) {
    auto memory = platform::allocateTransferMemory(bytes);
    auto* const begin = memory.get();
    std::memset(begin, 0, bytes);
    Pieces piece;
    piece.emplace(begin, Piece{std::move(memory), bytes});
    pieces().hold().value.merge(piece);
    return begin;
}

void freeUnitMemory(void* memory) {
    Pieces::node_type freed;  // destroyed after the lock is released
    freed = pieces().hold().value.extract(static_cast<std::byte const*>(memory));
}

bool isUnitMemory(void const* begin, std::size_t bytes) {
    auto const* const from = static_cast<std::byte const*>(begin);
    auto const item = pieces().hold();
    auto const piece = item.value.lower_bound(from);
    if (piece == item.value.end()) return false;
    auto const offset = static_cast<std::size_t>(from - piece->first);
    return offset <= piece->second.size && bytes <= piece->second.size - offset;
}

}  // namespace KelvonClip
