#include "audio/hemlock_block.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "foundation/load_store.h"

namespace KelvonClip::hemlock {

namespace {

// Row 0 for unknown values, then one row for each frequency in value order.
constexpr auto CADENCES = std::to_array<Cadence>({
    // code phased  samples  phase 4  ten units       rate
    {0, false, 0, 0, 0},
    {2, false, 800, 800, 8000},      // 60Hz       KEEP: 60, 59.94 and 50Hz have the codes 2, 3 and 1;
    {3, true, 801, 800, 8008},       // 59.94Hz    all others have the value of the frequency
    {1, false, 960, 960, 9600},      // 50Hz
    {4, false, 1000, 1000, 10000},   // 48Hz
    {5, false, 1001, 1001, 10010},   // 47.95Hz
    {6, false, 1600, 1600, 16000},   // 30Hz
    {7, true, 1602, 1600, 16016},    // 29.97Hz
    {8, false, 1920, 1920, 19200},   // 25Hz
    {9, false, 2000, 2000, 20000},   // 24Hz
    {10, false, 2002, 2002, 20020},  // 23.98Hz
});

constexpr bool consistent(Cadence const& row) {
    return row.phased ? 2 * ((PHASES - 1) * row.samples + row.samples_in_last_phase) == row.samples_per_ten_units
                      : row.samples == (row.samples_per_ten_units + 5) / 10 && row.samples == row.samples_in_last_phase;
}
static_assert(std::all_of(CADENCES.begin(), CADENCES.end(), consistent), "ten units carry the nominal samples");
static_assert(CADENCES.size() == 1 + 10, "row 0 and one row for each frequency");

}  // namespace

Cadence const& cadenceOf(VideoFrequency frequency) {
    auto const row = static_cast<std::uint32_t>(frequency);
    return CADENCES[row < CADENCES.size() ? row : 0];
}

std::optional<BlockHeader> readHeader(std::byte const* from, Cadence const& cadence) {
    auto const flags = std::to_integer<std::uint8_t>(from[block::FLAGS_AT]);
    BlockHeader const header{
        .fade_in = (flags & block::FADE_IN) != 0,
        .fade_out = (flags & block::FADE_OUT) != 0,
        .phase = std::to_integer<std::uint8_t>(from[block::PHASE_AT]),
        .block_byte = std::to_integer<std::uint8_t>(from[block::BLOCK_BYTE_AT]),
        .block_word = loadLE32(from + block::BLOCK_WORD_AT),
    };
    bool const valid = loadLE32(from + block::MAGIC_AT) == block::MAGIC &&
                       std::to_integer<std::uint8_t>(from[block::RATE_CODE_AT]) == cadence.rate_code &&
                       cadence.phaseValid(header.phase);
    return valid ? std::optional(header) : std::nullopt;
}

void writeHeader(std::byte* to, Cadence const& cadence, BlockHeader const& header) {
    std::memset(to, 0, block::SAMPLES_AT);
    auto const flags = (header.fade_in ? block::FADE_IN : 0) | (header.fade_out ? block::FADE_OUT : 0);
    storeLE32(to + block::MAGIC_AT, block::MAGIC);
    to[block::FLAGS_AT] = static_cast<std::byte>(flags);
    to[block::PHASE_AT] = std::byte{header.phase};
    to[block::BLOCK_BYTE_AT] = std::byte{header.block_byte};
    to[block::RATE_CODE_AT] = std::byte{cadence.rate_code};
    storeLE32(to + block::BLOCK_WORD_AT, header.block_word);
}

bool continues(BlockHeader const& previous, BlockHeader const& next, Cadence const& cadence) {
    return !next.fade_in && !next.fade_out && next.block_byte == previous.block_byte &&
           next.block_word == previous.block_word + 1 &&
           (!cadence.phased || next.phase == cadence.nextPhase(previous.phase));
}

DecodedBlock decode(std::int32_t* words, Cadence const& cadence, std::uint64_t unit) {
    auto const header = readHeader(reinterpret_cast<std::byte const*>(words), cadence);
    DecodedBlock decoded;
    decoded.invalid = !header;
    decoded.header = header.value_or(BlockHeader{.phase = cadence.nominalPhase(unit)});
    decoded.samples = {words + block::SAMPLES_AT / sizeof *words, cadence.sampleCount(decoded.header.phase)};
    if (decoded.invalid) std::ranges::fill(decoded.samples, 0);
    return decoded;
}

}  // namespace KelvonClip::hemlock
