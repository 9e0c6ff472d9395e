// The hemlock block: the data of one subchannel in one unit of an audio track. Used by the reader and the writer.
//
// A block has a header of 32 bytes, then 32-bit samples at 48 kHz; its size is 4096 or 8192 bytes. A unit is one block
// for each subchannel, one after the other. The number of samples in a block depends on the rate; at two of the ten
// rates also on the block's phase in a cadence of five units. Byte table: docs/format.md, "Hemlock unit".
//
// Blocks and both hosts are little-endian, so samples are copied without conversion.
// Threads: pure functions over constant tables.
#pragma once

#include <kelvonclip/kelvon_std.h>

#include <bit>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace KelvonClip::hemlock {

static_assert(std::endian::native == std::endian::little, "samples are copied, never converted");

namespace block {
constexpr std::size_t MAGIC_AT = 0;       // 4 bytes
constexpr std::size_t FLAGS_AT = 4;       // 1
constexpr std::size_t PHASE_AT = 5;       // 1
constexpr std::size_t BLOCK_BYTE_AT = 6;  // 1
constexpr std::size_t RATE_CODE_AT = 7;   // 1
constexpr std::size_t BLOCK_WORD_AT = 8;  // 4
constexpr std::size_t SAMPLES_AT = 32;    // 4 each; the bytes before them are zero
constexpr std::uint32_t MAGIC = 0x7D3E9A51;
constexpr std::uint8_t FADE_IN = 0x01;   // flag: the block starts a recording
constexpr std::uint8_t FADE_OUT = 0x02;  // flag: the block ends a recording
}  // namespace block

constexpr std::uint32_t PHASES = 5;

// How the samples are distributed over units at one rate.
struct Cadence {
    std::uint8_t rate_code;               // in the header of every block of that rate
    bool phased;                          // true: blocks have phases 0 to 4; false: the phase is always 0
    std::uint32_t samples;                // in a block of phases 0 to 3
    std::uint32_t samples_in_last_phase;  // in a block of phase 4
    std::uint32_t samples_per_ten_units;  // nominal: ten units at 48 kHz

    std::uint32_t sampleCount(std::uint8_t phase) const {
        return phase == PHASES - 1 ? samples_in_last_phase : samples;
    }
    std::uint8_t nextPhase(std::uint8_t phase) const {
        return phased ? static_cast<std::uint8_t>((phase + 1u) % PHASES) : phase;
    }
    // The phase of a unit's block in a track that consists of a single recording.
    std::uint8_t nominalPhase(std::uint64_t unit) const {
        return phased ? static_cast<std::uint8_t>(unit % PHASES) : std::uint8_t{0};
    }
    // The unit that holds a sample of such a track, and the unit's first sample. At phased rates the samples up to
    // there are not the nominal number: their drift, in tenths of a sample.
    struct UnitOfSample {
        std::uint64_t unit, first_sample;
        std::int64_t drift;
    };
    UnitOfSample unitOfSample(std::uint64_t sample) const {
        constexpr std::uint32_t UNITS = 2 * PHASES;  // they have samples_per_ten_units
        UnitOfSample found{sample / samples_per_ten_units * UNITS, sample - sample % samples_per_ten_units, 0};
        for (;;) {
            std::uint32_t const count = sampleCount(nominalPhase(found.unit));
            if (sample - found.first_sample < count) return found;
            ++found.unit;
            found.first_sample += count;
            found.drift += std::int64_t{UNITS} * count - samples_per_ten_units;
        }
    }
    bool phaseValid(std::uint8_t phase) const { return phased ? phase < PHASES : phase == 0; }

    // Nominal number of samples of `fields` fields, rounded up.
    std::uint64_t totalSamples(std::uint32_t fields) const {
        return (std::uint64_t{fields} * samples_per_ten_units + 9) / 10;
    }
};

// The cadence of a rate; all zero for an unknown rate.
Cadence const& cadenceOf(VideoFrequency frequency);

// The header of a valid block.
struct BlockHeader {
    bool fade_in = false, fade_out = false;
    std::uint8_t phase = 0;
    std::uint8_t block_byte = 0;   // subchannel index
    std::uint32_t block_word = 0;  // increases by one with each block of a recording

    friend bool operator==(BlockHeader const&, BlockHeader const&) = default;
};

// Reads the header of the block at `from`; absent if magic, rate code or phase is not valid at that rate. Unknown flags
// and reserved bytes are ignored.
std::optional<BlockHeader> readHeader(std::byte const* from, Cadence const& cadence);

// Writes the 32 bytes before the samples.
void writeHeader(std::byte* to, Cadence const& cadence, BlockHeader const& header);

// True if `next` continues `previous`: no recording ended or started between them.
bool continues(BlockHeader const& previous, BlockHeader const& next, Cadence const& cadence);

// A block in memory. An invalid block has the nominal number of samples, all zero, and no flags.
struct DecodedBlock {
    bool invalid = false;
    BlockHeader header;
    // Points into the unit's buffer. The word before the first sample belongs to the block's header and may be
    // overwritten.
    std::span<std::int32_t> samples;
};

// Decodes the block of `toAudioSize` bytes at `words`, which belongs to `unit`. The samples of an invalid block are set
// to zero in place.
DecodedBlock decode(std::int32_t* words, Cadence const& cadence, std::uint64_t unit);

}  // namespace KelvonClip::hemlock
