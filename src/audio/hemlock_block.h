// The hemlock block: what one subchannel of an audio track holds in one unit, as the reader takes it apart and the
// writer puts it together.
//
// A block is a header of 32 bytes and then 32-bit samples at 48 kHz; it fills 4096 or 8192 bytes, and a unit holds one
// for each subchannel, side by side. How many samples a block carries follows from the rate alone, at two of the ten
// rates also from the block's phase in a cadence of five units. Byte table: docs/format.md, "Hemlock unit".
//
// Both hosts are little-endian, as the blocks are, so samples go between a block and memory by plain copies.
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
constexpr std::uint8_t FADE_IN = 0x01;   // of the flags: the block begins a recording
constexpr std::uint8_t FADE_OUT = 0x02;  // the block ends one
}  // namespace block

constexpr std::uint32_t PHASES = 5;

// How the samples of one rate fall into units.
struct Cadence {
    std::uint8_t rate_code;               // as every block of that rate states it
    bool phased;                          // whether blocks have phases 0 to 4; the phase is 0 otherwise
    std::uint32_t samples;                // in a block of phases 0 to 3
    std::uint32_t samples_in_last_phase;  // in a block of phase 4
    std::uint32_t samples_per_ten_units;  // nominal: ten units at 48 kHz

    std::uint32_t sampleCount(std::uint8_t phase) const {
        return phase == PHASES - 1 ? samples_in_last_phase : samples;
    }
    std::uint8_t nextPhase(std::uint8_t phase) const {
        return phased ? static_cast<std::uint8_t>((phase + 1u) % PHASES) : phase;
    }
    // The phase that the block of a unit would have if the track had been recorded in one go.
    std::uint8_t nominalPhase(std::uint64_t unit) const {
        return phased ? static_cast<std::uint8_t>(unit % PHASES) : std::uint8_t{0};
    }
    bool phaseValid(std::uint8_t phase) const { return phased ? phase < PHASES : phase == 0; }

    // Samples of a track of `fields` fields, rounded up.
    std::uint64_t totalSamples(std::uint32_t fields) const {
        return (std::uint64_t{fields} * samples_per_ten_units + 9) / 10;
    }
};

// The cadence of a rate; all zero for a value that is none of the ten.
Cadence const& cadenceOf(VideoFrequency frequency);

// What the header of a valid block says.
struct BlockHeader {
    bool fade_in = false, fade_out = false;
    std::uint8_t phase = 0;
    std::uint8_t block_byte = 0;   // the block's subchannel
    std::uint32_t block_word = 0;  // a count, one higher in each block of a recording

    friend bool operator==(BlockHeader const&, BlockHeader const&) = default;
};

// The header of the block at `from`; absent when the block is not valid: other magic, other rate code, or a phase that
// the rate does not have. Flags without a meaning and the bytes that should be zero are not looked at.
std::optional<BlockHeader> readHeader(std::byte const* from, Cadence const& cadence);

// Writes the 32 bytes before the samples.
void writeHeader(std::byte* to, Cadence const& cadence, BlockHeader const& header);

// Whether `next` goes on where `previous` ended, so that no recording stopped or started between them.
bool continues(BlockHeader const& previous, BlockHeader const& next, Cadence const& cadence);

// A block in memory. An invalid one has the nominal number of samples, all zero, and a header without flags.
struct DecodedBlock {
    bool invalid = false;
    BlockHeader header;
    // In the unit's buffer. The place before the first sample belongs to the block as well and may be written.
    std::span<std::int32_t> samples;
};

// Takes apart the block of `unit` that lies at `words`, a block of `toAudioSize` bytes; the samples of an invalid block
// are zeroed where they lie.
DecodedBlock decode(std::int32_t* words, Cadence const& cadence, std::uint64_t unit);

}  // namespace KelvonClip::hemlock
