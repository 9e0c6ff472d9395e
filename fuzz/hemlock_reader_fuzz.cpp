// The reader of audio tracks with arbitrary block headers, failing reads and portions, compared with the tests' own
// model.
//
// Input: the frequency (1 byte, modulo ten) and the subchannels (1 byte); the units (two bytes with their length): for
// each a byte that says which subchannels have the header and whether reading the unit fails, the 12 bytes of the
// header and one from which the samples are generated; then the portions, two bytes each.
#include "audio/hemlock_reader.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "audio/audio_track.h"
#include "audio/memory_units.h"
#include "input.h"
#include "require.h"
#include "support/audio_model.h"

namespace {

using namespace KelvonClip;
using fuzz::require;

constexpr std::size_t HEADER = 12, MOST_UNITS = 60;
constexpr std::uint32_t SUBCHANNELS[] = {2, 4, 8, 14, 16};
constexpr int MOST_CALLS = 300;

void addUnit(model::MemoryUnits& track, fuzz::Input& input) {
    std::uint8_t const control = input.byte();
    std::uint8_t header[HEADER];
    for (auto& byte : header)
        byte = input.byte();
    std::minstd_rand random(1u + input.byte());
    auto const unit = static_cast<std::uint32_t>(track.units.size());
    auto& bytes = track.units.emplace_back(track.shape.unitSize());
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<std::uint8_t>(random() >> 8); });
    for (std::uint32_t s = 0; s < track.shape.subchannel_count; ++s)
        if ((control & 1) == 0 || s % 2 == 0) std::memcpy(track.block(unit, s), header, HEADER);
    if (control >= 0xF0) track.read_faults[unit] = control % 3;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    fuzz::Input input(data, size);
    auto const& rate = model::rates()[input.byte() % 10];
    std::uint32_t const subchannels = SUBCHANNELS[input.byte() % 5];
    auto const track = std::make_shared<model::MemoryUnits>(AudioTrackShape{rate.frequency, subchannels, 0});
    auto const units = input.part();
    for (fuzz::Input of_units(units.data(), units.size()); !of_units.empty() && track->units.size() < MOST_UNITS;)
        addUnit(*track, of_units);

    HemlockReader reader(track->shapeNow(), track);
    std::uint64_t const total = reader.samplesRemaining();
    std::vector<model::Samples> read(subchannels);
    bool failed = false;
    for (int call = 0; call < MOST_CALLS && !input.empty(); ++call) {
        std::uint32_t const n = input.below(5000);
        std::vector<model::Samples> portions(subchannels, model::Samples(n));
        std::vector<std::int32_t*> buffers;
        for (auto& portion : portions)
            buffers.push_back(portion.data());
        std::uint64_t const before = reader.samplesRemaining();
        if (!reader.read(buffers.data(), n).empty()) {
            require(reader.samplesRemaining() == before, "a failure leaves what remains as it was");
            failed = true;
            continue;
        }
        require(reader.samplesRemaining() == before - std::min<std::uint64_t>(before, n), "what remains is counted");
        for (std::uint32_t s = 0; s < subchannels; ++s)
            read[s].insert(read[s].end(), portions[s].begin(), portions[s].end());
    }
    require(reader.samplesRemaining() <= total, "no more remains than there was");
    if (failed) return 0;  // the samples before a unit that failed were delivered by the call that failed
    for (std::uint32_t s = 0; s < subchannels; ++s) {
        auto const silence = read[s].size() / rate.cycle[0] + 2;
        auto expected = track->stream(s, silence).samples;
        require(expected.size() >= read[s].size(), "the model's count");
        expected.resize(read[s].size());
        require(read[s] == expected, "the model's samples");
    }
    return 0;
}
