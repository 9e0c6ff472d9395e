// The audio block decoder and the sample stream with arbitrary block headers, compared with the tests' own model.
//
// Input: the frequency (1 byte, modulo ten), the number of samples taken at a time (1 byte), then 16 bytes for each
// unit: 12 bytes of block header, and a number from which the samples are generated.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "audio/hemlock_block.h"
#include "audio/subchannel_stream.h"
#include "require.h"
#include "support/audio_model.h"

namespace {

using namespace KelvonClip;
using fuzz::require;

constexpr std::size_t HEADER = 12, PER_UNIT = HEADER + 4, MOST_UNITS = 200;

std::vector<std::int32_t> unitOf(std::uint8_t const* from, model::Rate const& rate) {
    std::vector<std::int32_t> words(rate.block_bytes / 4);
    std::memcpy(words.data(), from, HEADER);
    std::minstd_rand random(model::get32(from + HEADER));
    std::generate(words.begin() + 8, words.end(), [&] { return static_cast<std::int32_t>(random() * 2u); });
    return words;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    if (size < 2) return 0;
    auto const& rate = model::rates()[data[0] % 10];
    std::uint32_t const portion = 1 + data[1] * 9u;
    hemlock::Cadence const& cadence = hemlock::cadenceOf(rate.frequency);
    hemlock::SubchannelStream stream(cadence);
    model::Stream expected(rate);
    std::vector<std::vector<std::int32_t>> units;  // the stream points into them
    std::uint32_t open_blocks = 0;
    model::Samples taken;

    std::size_t const count = std::min((size - 2) / PER_UNIT, MOST_UNITS);
    for (std::size_t unit = 0; unit < count; ++unit) {
        units.push_back(unitOf(data + 2 + unit * PER_UNIT, rate));
        expected.feed(reinterpret_cast<std::uint8_t const*>(units.back().data()), unit);
        stream.reserveBlock();
        stream.feed(hemlock::decode(units.back().data(), cadence, unit), open_blocks);
        while (stream.available() >= portion) {
            taken.resize(taken.size() + portion);
            require(stream.take(taken.data() + taken.size() - portion, portion), "what is available can be taken");
        }
        require(stream.driftInTenths() == expected.drift, "the model's drift");
    }
    std::uint32_t const rest = stream.available();
    taken.resize(taken.size() + rest);
    require(stream.take(taken.data() + taken.size() - rest, rest), "what is left can be taken");
    require(taken == expected.samples, "the model's samples");
    require(open_blocks == 0, "every block let go");
    return 0;
}
