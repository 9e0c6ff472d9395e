#include "unit_cutter.h"

#include <algorithm>
#include <iterator>

namespace tool {

namespace {

std::uint8_t valueAt(std::span<std::byte const> bytes, std::size_t at) {
    return at < bytes.size() ? std::to_integer<std::uint8_t>(bytes[at]) : std::uint8_t{0};
}

// Section types of the first DIF blocks: header, two of subcode, three of VAUX.
bool looksLikeDv(std::span<std::byte const> first) {
    constexpr std::size_t BLOCK = 80;
    constexpr std::uint8_t SECTIONS[] = {0, 1, 1, 2, 2, 2};
    if (first.size() < BLOCK * std::size(SECTIONS)) return false;
    for (std::size_t i = 0; i < std::size(SECTIONS); ++i)
        if (valueAt(first, i * BLOCK) >> 5 != SECTIONS[i]) return false;
    return true;
}

}  // namespace

EssenceKind recogniseEssence(std::span<std::byte const> first) {
    if (valueAt(first, 0) == 0xFF && valueAt(first, 1) == 0x4F) return EssenceKind::j2k;
    if (looksLikeDv(first)) return EssenceKind::dv;
    auto const begin = std::ranges::find_if(first, [](std::byte byte) { return byte != std::byte{0}; });
    bool const start_code = begin - first.begin() >= 2 && begin != first.end() && *begin == std::byte{1};
    return start_code ? EssenceKind::avc : EssenceKind::unknown;
}

void UnitSink::take(InputWindow& input, std::span<std::byte const> bytes) {
    if (taken < unit.size()) {
        auto const room = unit.subspan(static_cast<std::size_t>(taken));
        std::ranges::copy(bytes.first(std::min(bytes.size(), room.size())), room.begin());
    }
    taken += bytes.size();
    input.skip(bytes.size());
}

bool UnitSink::take(InputWindow& input, std::uint64_t count) {
    while (count > 0) {
        auto const there = input.look(1);
        if (there.empty()) return false;
        auto const part = there.first(static_cast<std::size_t>(std::min<std::uint64_t>(there.size(), count)));
        count -= part.size();
        take(input, part);
    }
    return true;
}

}  // namespace tool
