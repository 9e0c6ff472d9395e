#include "platform/scratch_memory.h"

#include <array>
#include <atomic>

namespace KelvonClip::platform {

namespace {

using Piece = ScratchMemory::Piece;
using Spare = std::atomic<Piece*>;

// What is kept at most, for each size. Single atomic exchanges, for the reasons that recycled_memory has.
constinit std::array<Spare, 8> small_spares{};
constinit std::array<Spare, 1> large_spares{};
constinit std::atomic<bool> keeping{true};

template <class Work>
void eachSpare(ScratchMemory::Size size, Work&& takes) {
    if (size == ScratchMemory::Size::large) {
        for (Spare& spare : large_spares)
            if (takes(spare)) return;
    } else {
        for (Spare& spare : small_spares)
            if (takes(spare)) return;
    }
}

Piece* takeSpare(ScratchMemory::Size size) {
    Piece* taken = nullptr;
    eachSpare(size, [&](Spare& spare) {
        if (spare.load(std::memory_order_relaxed) != nullptr)
            taken = spare.exchange(nullptr, std::memory_order_acquire);
        return taken != nullptr;
    });
    return taken;
}

// Frees the spares when the process or the library ends.
struct FreesSparesAtTheEnd {
    ~FreesSparesAtTheEnd() {
        keeping = false;
        for (auto const size : {ScratchMemory::Size::small, ScratchMemory::Size::large})
            while (Piece* const piece = takeSpare(size))
                delete piece;
    }
} const at_the_end;

}  // namespace

ScratchMemory::ScratchMemory(Size bytes) : piece(takeSpare(bytes)) {
    if (!piece) piece = std::make_unique<Piece>(bytes);
}

ScratchMemory::~ScratchMemory() {
    if (!keeping.load(std::memory_order_relaxed)) return;
    eachSpare(piece->size, [&](Spare& spare) {
        Piece* none = nullptr;
        if (spare.load(std::memory_order_relaxed) == nullptr &&
            spare.compare_exchange_strong(none, piece.get(), std::memory_order_release, std::memory_order_relaxed))
            (void)piece.release();
        return piece == nullptr;
    });
}

}  // namespace KelvonClip::platform
