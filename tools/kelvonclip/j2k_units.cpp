// JPEG 2000 code streams (ISO/IEC 15444-1, Annex A): SOC, the segments of the main header, tile-parts, EOC. A tile-part
// begins with SOT, which says how long it is; only the last one may leave that open, and ends with the code stream.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>

#include "unit_cutter.h"

namespace tool {

namespace {

enum J2kMarker : std::uint32_t {
    SOC = 0xFF4F,
    SIZ = 0xFF51,
    SOT = 0xFF90,
    SOP = 0xFF91,
    EPH = 0xFF92,
    SOD = 0xFF93,
    EOC = 0xFFD9,
};

std::uint32_t bigEndian(std::span<std::byte const> bytes, std::size_t at, std::size_t count) {
    std::uint32_t number = 0;
    for (std::size_t i = 0; i < count; ++i)
        number = number << 8 | std::to_integer<std::uint32_t>(bytes[at + i]);
    return number;
}

std::string markerText(std::uint32_t marker) {
    constexpr char const* DIGITS = "0123456789ABCDEF";
    std::string text;
    for (int shift = 12; shift >= 0; shift -= 4)
        text += DIGITS[marker >> shift & 15];
    return text;
}

class J2kCutter : public UnitCutter {
  public:
    explicit J2kCutter(ByteSource input) : window(std::move(input)) {}

    PictureFacts facts() override {
        // SOC, and SIZ with its length, capabilities and four sizes
        constexpr std::size_t ENOUGH = 2 + 4 + 2 + 16, SIZES_AT = 8;
        auto const first = window.look(ENOUGH);
        if (first.size() < ENOUGH || bigEndian(first, 0, 2) != SOC || bigEndian(first, 2, 2) != SIZ)
            throw EssenceFault(window.position(), "this is not the beginning of a code stream");
        PictureFacts told;
        told.width = bigEndian(first, SIZES_AT, 4) - bigEndian(first, SIZES_AT + 8, 4);
        told.lines = bigEndian(first, SIZES_AT + 4, 4) - bigEndian(first, SIZES_AT + 12, 4);
        return told;
    }

    std::optional<std::uint64_t> next(std::span<std::byte> unit) override {
        if (!skipZeros()) return std::nullopt;
        if (PictureFacts const told = facts(); !raster) {
            raster = told;
        } else if (*raster != told) {
            throw EssenceFault(window.position(), "the pictures have another size from here on: " +
                                                      std::to_string(told.width) + " x " + std::to_string(told.lines));
        }
        UnitSink sink(unit);
        take(sink, 2);
        while (marker() != SOT)
            takeSegment(sink);
        while (marker() == SOT)
            takeTilePart(sink);
        if (marker() != EOC) unexpected();
        take(sink, 2);
        return sink.size();
    }

  private:
    // Goes on at the next byte that is not zero; false at the end.
    bool skipZeros() {
        for (;;) {
            auto const there = window.look(1);
            if (there.empty()) return false;
            auto const other = std::ranges::find_if(there, [](std::byte byte) { return byte != std::byte{0}; });
            window.skip(static_cast<std::size_t>(other - there.begin()));
            if (other != there.end()) return true;
        }
    }

    // `count` bytes from here on.
    std::span<std::byte const> need(std::size_t count) {
        auto const there = window.look(count);
        if (there.size() < count) cutOff();
        return there.first(count);
    }
    std::uint32_t marker() { return bigEndian(need(2), 0, 2); }
    void take(UnitSink& sink, std::uint64_t count) {
        if (!sink.take(window, count)) cutOff();
    }
    [[noreturn]] void cutOff() { throw EssenceFault(window.position(), "the input ends inside a code stream"); }
    [[noreturn]] void unexpected() {
        throw EssenceFault(window.position(), markerText(marker()) + " is no marker that can stand here");
    }

    // A marker with its length and parameters.
    void takeSegment(UnitSink& sink) {
        constexpr std::uint32_t LENGTH_BYTES = 2;
        if (marker() <= SOC || marker() == SOD || marker() == EOC) unexpected();
        std::uint32_t const length = bigEndian(need(4), 2, 2);
        if (length < LENGTH_BYTES) unexpected();
        take(sink, std::uint64_t{2} + length);
    }

    void takeTilePart(UnitSink& sink) {
        constexpr std::size_t SOT_BYTES = 12, LENGTH_AT = 6;
        auto const sot = need(SOT_BYTES);
        if (bigEndian(sot, 2, 2) != SOT_BYTES - 2) unexpected();
        std::uint64_t const length = bigEndian(sot, LENGTH_AT, 4), begin = window.position();
        take(sink, SOT_BYTES);
        while (marker() != SOD)
            takeSegment(sink);
        take(sink, 2);
        std::uint64_t const header = window.position() - begin;
        if (length == 0) return takeToEoc(sink);
        if (length < header) throw EssenceFault(begin, "a tile-part is shorter than its header");
        take(sink, length - header);
    }

    // Packets up to EOC. The coding has no FF with more than 8F behind it; only the two markers of packets may stand
    // there.
    void takeToEoc(UnitSink& sink) {
        constexpr std::size_t SOP_BYTES = 6;
        for (;;) {
            auto const data = window.look(2);
            if (data.size() < 2) cutOff();
            auto const ff = std::ranges::find(data.first(data.size() - 1), std::byte{0xFF});
            if (ff != data.begin()) {
                sink.take(window, data.first(static_cast<std::size_t>(ff - data.begin())));
                continue;
            }
            std::uint32_t const here = bigEndian(data, 0, 2);
            if (here == EOC) return;
            if (here < SOT || here == EPH) {
                take(sink, here == EPH ? 2 : 1);
            } else if (here == SOP) {
                take(sink, SOP_BYTES);
            } else {
                unexpected();
            }
        }
    }

    InputWindow window;
    std::optional<PictureFacts> raster;
};

}  // namespace

std::unique_ptr<UnitCutter> cutJ2k(ByteSource input) { return std::make_unique<J2kCutter>(std::move(input)); }

}  // namespace tool
