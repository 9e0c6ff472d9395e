// DV (SMPTE ST 314, ST 370): DIF blocks of 80 bytes, 150 to a sequence, 10 or 12 sequences to a channel, and 1, 2 or 4
// channels to a frame.
#include <array>
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

constexpr std::size_t DIF_BLOCK_BYTES = 80, DIF_BLOCKS = 150, DIF_SEQUENCE_BYTES = DIF_BLOCK_BYTES * DIF_BLOCKS;

// The kinds of DV by the source type of the VAUX data.
struct DvKind {
    std::uint8_t source_type;
    std::uint32_t channels;
    std::uint32_t width, lines_at_60, lines_at_50;
    bool interlaced;
    std::uint32_t frames_at_60, frames_at_50;  // a second; at "60" these are thousandths more, divided by 1.001
};
constexpr auto DV_KINDS = std::to_array<DvKind>({
    {0x00, 1, 720, 486, 576, true, 30, 25},     // 25 Mbit/s
    {0x04, 2, 720, 486, 576, true, 30, 25},     // 50 Mbit/s
    {0x14, 4, 1920, 1080, 1080, true, 30, 25},  // 100 Mbit/s
    {0x18, 2, 1280, 720, 720, false, 60, 50},
});

std::uint8_t dvByte(std::span<std::byte const> bytes, std::size_t at) {
    return std::to_integer<std::uint8_t>(bytes[at]);
}

// Section type and number within its section of block k of a sequence.
struct DifId {
    std::uint8_t section, number;
};
constexpr DifId difId(std::size_t k) {
    auto const number = [](std::size_t n) { return static_cast<std::uint8_t>(n); };
    if (k == 0) return {0, 0};
    if (k < 3) return {1, number(k - 1)};
    if (k < 6) return {2, number(k - 3)};
    // nine times an audio block and 15 of video
    std::size_t const group = (k - 6) / 16, in_group = (k - 6) % 16;
    return in_group == 0 ? DifId{3, number(group)} : DifId{4, number(15 * group + in_group - 1)};
}

// The source type, from the VAUX source pack of a sequence.
std::optional<std::uint8_t> sourceType(std::span<std::byte const> sequence) {
    constexpr std::size_t FIRST_VAUX_BLOCK = 3, VAUX_BLOCKS = 3, PACKS = 15, PACK_BYTES = 5, PACKS_AT = 3;
    constexpr std::uint8_t SOURCE_PACK = 0x60, SOURCE_TYPE = 0x1F;
    for (std::size_t block = FIRST_VAUX_BLOCK; block < FIRST_VAUX_BLOCK + VAUX_BLOCKS; ++block)
        for (std::size_t pack = 0; pack < PACKS; ++pack) {
            std::size_t const at = block * DIF_BLOCK_BYTES + PACKS_AT + pack * PACK_BYTES;
            if (dvByte(sequence, at) == SOURCE_PACK) return dvByte(sequence, at + 3) & SOURCE_TYPE;
        }
    return std::nullopt;
}

class DvCutter : public UnitCutter {
  public:
    DvCutter(ByteSource input, std::size_t frame_bytes) : window(std::move(input)), otherwise(frame_bytes) {}

    PictureFacts facts() override {
        prepare();
        return told;
    }

    std::optional<std::uint64_t> next(std::span<std::byte> unit) override {
        if (window.atEnd()) return std::nullopt;
        prepare();
        UnitSink sink(unit);
        for (std::size_t sequence = 0; sequence < channels * sequences; ++sequence) {
            auto const there = window.look(DIF_SEQUENCE_BYTES);
            if (there.size() < DIF_SEQUENCE_BYTES)
                throw EssenceFault(window.position() + there.size(),
                                   "the input ends inside the frame, which has " +
                                       std::to_string(sink.size() + there.size()) + " bytes instead of " +
                                       std::to_string(channels * sequences * DIF_SEQUENCE_BYTES));
            auto const blocks = there.first(DIF_SEQUENCE_BYTES);
            checkBlocks(blocks, sequence / sequences, sequence % sequences);
            sink.take(window, blocks);
        }
        return sink.size();
    }

  private:
    // Finds out from the first sequence which DV it is.
    void prepare() {
        if (channels != 0) return;
        auto const first = window.look(DIF_SEQUENCE_BYTES);
        if (first.size() < DIF_SEQUENCE_BYTES)
            throw EssenceFault(first.size(), "the input ends inside the first frame");
        constexpr std::uint8_t FIFTY = 0x80;
        bool const fifty = (dvByte(first, 3) & FIFTY) != 0;
        sequences = fifty ? 12 : 10;
        auto const type = sourceType(first);
        for (DvKind const& kind : DV_KINDS)
            if (type == kind.source_type) {
                channels = kind.channels;
                told.width = kind.width;
                told.lines = fifty ? kind.lines_at_50 : kind.lines_at_60;
                told.interlaced = kind.interlaced;
                told.rate_numerator = fifty ? kind.frames_at_50 : kind.frames_at_60 * 1000;
                told.rate_denominator = fifty ? 1 : 1001;
                return;
            }
        channels = otherwise / (sequences * DIF_SEQUENCE_BYTES);
        if (channels == 0) throw EssenceFault(0, "the first frame does not say which DV it is");
    }

    void checkBlocks(std::span<std::byte const> blocks, std::size_t channel, std::size_t sequence) const {
        for (std::size_t k = 0; k < DIF_BLOCKS; ++k) {
            std::size_t const at = k * DIF_BLOCK_BYTES;
            DifId const id = difId(k);
            bool const section = dvByte(blocks, at) >> 5 == id.section, number = dvByte(blocks, at + 2) == id.number;
            bool const place =
                dvByte(blocks, at + 1) >> 4 == sequence && (dvByte(blocks, at + 1) >> 3 & 1) == channel % 2;
            if (section && number && place) continue;
            throw EssenceFault(window.position() + at, "there is no DIF block " + std::to_string(k) + " of sequence " +
                                                           std::to_string(sequence) + " of channel " +
                                                           std::to_string(channel));
        }
    }

    InputWindow window;
    std::size_t const otherwise;
    std::size_t channels = 0, sequences = 0;  // of a frame; of a channel
    PictureFacts told;
};

}  // namespace

std::unique_ptr<UnitCutter> cutDv(ByteSource input, std::size_t frame_bytes) {
    return std::make_unique<DvCutter>(std::move(input), frame_bytes);
}

}  // namespace tool
