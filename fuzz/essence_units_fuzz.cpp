// The cutters of raw pictures, with the program's sources: what they make of arbitrary bytes.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "input.h"
#include "require.h"
#include "unit_cutter.h"

namespace {

using KelvonClip::fuzz::Input;
using KelvonClip::fuzz::require;
using Bytes = std::vector<std::byte>;

// Gives the bytes in pieces of at most `piece`.
tool::ByteSource sourceOf(Bytes const& bytes, std::size_t piece) {
    return [&bytes, piece, at = std::size_t{0}](std::span<std::byte> to) mutable {
        std::size_t const part = std::min({piece, to.size(), bytes.size() - at});
        std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(at), part, to.begin());
        at += part;
        return part;
    };
}

std::unique_ptr<tool::UnitCutter> cutterOf(tool::EssenceKind kind, tool::ByteSource source) {
    switch (kind) {
    case tool::EssenceKind::avc:
        return tool::cutAvc(std::move(source));
    case tool::EssenceKind::dv:
        return tool::cutDv(std::move(source), 120000);
    default:
        return tool::cutJ2k(std::move(source));
    }
}

struct Cut {
    std::vector<Bytes> units;
    std::string fault;
};

Cut cut(tool::EssenceKind kind, Bytes const& bytes, std::size_t piece) {
    Cut result;
    auto const cutter = cutterOf(kind, sourceOf(bytes, piece));
    Bytes room(bytes.size());
    try {
        cutter->facts();
        while (auto const size = cutter->next(room)) {
            require(*size > 0 && *size <= bytes.size(), "a unit lies in the input");
            result.units.emplace_back(room.begin(), room.begin() + static_cast<std::ptrdiff_t>(*size));
        }
    } catch (tool::EssenceFault const& fault) {
        result.fault = fault.what();
    }
    return result;
}

Bytes joined(std::vector<Bytes> const& units) {
    Bytes all;
    for (Bytes const& unit : units)
        all.insert(all.end(), unit.begin(), unit.end());
    return all;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    Input input(data, size);
    auto const kind = static_cast<tool::EssenceKind>(1 + input.byte() % 3);
    std::size_t const piece = 1 + input.byte();
    auto const rest = input.rest();
    Bytes bytes(rest.size());
    std::ranges::transform(rest, bytes.begin(), [](std::uint8_t byte) { return std::byte{byte}; });
    tool::recogniseEssence(std::span<std::byte const>(bytes).first(std::min(bytes.size(), tool::BYTES_TO_RECOGNISE)));

    Cut const whole = cut(kind, bytes, bytes.size() + 1), parts = cut(kind, bytes, piece);
    require(whole.units == parts.units && whole.fault == parts.fault, "pieces and whole are cut alike");

    Bytes const all = joined(whole.units);
    if (whole.fault.empty() && kind != tool::EssenceKind::j2k) {
        auto const begin = bytes.end() - static_cast<std::ptrdiff_t>(all.size());
        require(all.size() <= bytes.size() && std::equal(all.begin(), all.end(), begin), "every byte is in a unit");
        bool const zeros = std::all_of(bytes.begin(), begin, [](std::byte byte) { return byte == std::byte{0}; });
        require(zeros, "only zeros are left out, at the beginning");
    }
    require(cut(kind, all, piece).units == whole.units, "units that were cut are cut alike again");

    // a caller with less room gets the same sizes
    auto const cutter = cutterOf(kind, sourceOf(bytes, piece));
    Bytes little(std::min<std::size_t>(bytes.size(), 7));
    try {
        for (Bytes const& unit : whole.units) {
            require(cutter->next(little) == std::optional<std::uint64_t>(unit.size()), "the size of a unit");
            require(std::equal(little.begin(),
                               little.begin() + static_cast<std::ptrdiff_t>(std::min(little.size(), unit.size())),
                               unit.begin()),
                    "as much of a unit as there is room for");
        }
    } catch (tool::EssenceFault const&) {
        require(false, "the same units with less room");
    }
    return 0;
}
