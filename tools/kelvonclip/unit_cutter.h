// Cuts raw pictures into the units that tracks hold. Each kind of essence has a source of its own: avc_units.cpp,
// dv_units.cpp, j2k_units.cpp. They trust no byte: memory is the same for every input, time grows with its length.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>

#include "input_window.h"

namespace tool {

// Why an input is not what it should be, with the byte where this shows.
class EssenceFault : public std::runtime_error {
  public:
    EssenceFault(std::uint64_t at, std::string const& why)
        : std::runtime_error(why + " (at byte " + std::to_string(at) + ")") {}
};

// What pictures say of themselves.
struct PictureFacts {
    std::uint32_t width = 0, lines = 0;  // of a unit; 0: not told
    std::optional<bool> interlaced;
    // Frames a second as a fraction; 0: not told.
    std::uint32_t rate_numerator = 0, rate_denominator = 0;

    friend bool operator==(PictureFacts const&, PictureFacts const&) = default;
};

// Threads: one at a time.
class UnitCutter {
  public:
    UnitCutter() = default;
    UnitCutter(UnitCutter const&) = delete;
    UnitCutter& operator=(UnitCutter const&) = delete;
    virtual ~UnitCutter() = default;

    // What the first unit says; to be asked before `next`. Throws EssenceFault.
    virtual PictureFacts facts() = 0;
    // Puts the next unit into `unit`, as far as it fits, and returns its size, which may be larger; nothing at the end
    // of the input. Throws EssenceFault, also if the input ends inside the unit.
    virtual std::optional<std::uint64_t> next(std::span<std::byte> unit) = 0;
};

// H.264 byte streams (ITU-T H.264, Annex B) of intra-coded pictures. A unit is a frame: the access unit of a frame, or
// those of its two fields. Zeros behind a unit belong to it.
std::unique_ptr<UnitCutter> cutAvc(ByteSource input);
// DV: the DIF blocks of a frame. `frame_bytes` counts if the input does not say which DV it is; 0: unknown too.
std::unique_ptr<UnitCutter> cutDv(ByteSource input, std::size_t frame_bytes);
// JPEG 2000: code streams from SOC to EOC (ISO/IEC 15444-1). Zeros between them belong to none.
std::unique_ptr<UnitCutter> cutJ2k(ByteSource input);

enum class EssenceKind { unknown, avc, dv, j2k };
// What the first bytes of an input look like.
constexpr std::size_t BYTES_TO_RECOGNISE = 512;
EssenceKind recogniseEssence(std::span<std::byte const> first);

// Where a cutter puts the bytes of a unit.
class UnitSink {
  public:
    explicit UnitSink(std::span<std::byte> room) : unit(room) {}

    // Takes bytes from the window.
    void take(InputWindow& input, std::span<std::byte const> bytes);
    // The same for so many bytes, however many. False if the input ends before.
    bool take(InputWindow& input, std::uint64_t count);
    std::uint64_t size() const { return taken; }

  private:
    std::span<std::byte> unit;
    std::uint64_t taken = 0;
};

}  // namespace tool
