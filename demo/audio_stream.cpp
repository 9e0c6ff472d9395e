// Sequential audio in the demonstration, and an independent model of the expected result, written from the description
// of the format (docs/audio.md) without any code of the library.
#include <kelvonclip/kelvonclip.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "demo.h"

namespace demo {

namespace {

using namespace KelvonClip;
using Samples = std::vector<std::int32_t>;

constexpr unsigned SAMPLES_PER_CALL = 1920;  // 40 ms, a typical call of an audio mixer

// The cadence of a standard: the number of samples in block n of a recording, and ten times the nominal number.
struct Cadence {
    bool fractional;
    std::size_t samples(std::size_t block) const { return !fractional ? 960 : block % 5 == 4 ? 800 : 801; }
    std::int32_t nominal10() const { return fractional ? 8008 : 9600; }
};

Cadence cadenceOf(ClipPlan const& clip) { return {std::wstring(clip.standard).find(L"59.94") != std::wstring::npos}; }

// One channel as the reader delivers it.
class Model {
  public:
    explicit Model(Cadence c) : cadence(c) {}

    // A recording has a fade-in. If it ends inside a block, the block is padded with silence and has a fade-out.
    void record(Samples::const_iterator from, Samples::const_iterator to) {
        for (std::size_t block = 0; from != to; ++block) {
            auto const wanted = static_cast<std::ptrdiff_t>(cadence.samples(block));
            auto const there = std::min<std::ptrdiff_t>(wanted, to - from);
            Samples samples(from, from + there);
            samples.resize(static_cast<std::size_t>(wanted));
            push(samples, block == 0, there < wanted);
            from += there;
        }
    }
    // Silence after the end of the track.
    Samples delivered(std::size_t count) && {
        stream.resize(count);
        return std::move(stream);
    }

  private:
    void push(Samples block, bool fade_in, bool fade_out) {
        auto const size = block.size();
        bool const repeat = fade_in && drift <= -20, drop = fade_in && drift >= 20;
        std::int32_t const first = block.front();
        if (drop) block.erase(block.begin());
        std::size_t const head = drop ? 99 : 100;
        for (std::size_t i = 0; fade_in && i < head; ++i)
            block[i] = block[i] / 256 * gain(i);
        for (std::size_t i = 0; fade_out && i < 100; ++i)
            block[block.size() - 100 + i] = block[block.size() - 100 + i] / 256 * gain(99 - i);
        if (repeat) block.insert(block.begin(), first);
        stream.insert(stream.end(), block.begin(), block.end());
        drift += static_cast<std::int32_t>(size + repeat - drop) * 10 - cadence.nominal10();
    }
    // Gains in units of 1/256, rising from 0.
    static std::int32_t gain(std::size_t i) { return static_cast<std::int32_t>((256 * i + 50) / 100); }

    Cadence cadence;
    std::int32_t drift = 0;  // tenths of a sample ahead of the nominal count
    Samples stream;
};

void recordRange(unsigned track, std::vector<Samples> const& channels, std::size_t from, std::size_t to, Tally& tally) {
    unsigned writer = 0;
    require(seqwrite_begin(track, &writer), "seqwrite_begin");
    require(seqwrite_subchannel_count(writer) == channels.size(), "the writer's subchannels differ");
    std::vector<std::int32_t const*> buffers(channels.size());
    while (from < to) {
        auto const count = static_cast<unsigned>(std::min<std::size_t>(SAMPLES_PER_CALL, to - from));
        for (std::size_t i = 0; i < channels.size(); ++i)
            buffers[i] = channels[i].data() + from;
        require(tally.timed([&] { return seqwrite_write(writer, buffers.data(), count); }), "seqwrite_write");
        from += count;
    }
    require(tally.timed([&] { return seqwrite_finish(writer); }), "seqwrite_finish");
}

}  // namespace

void recordStreams(ClipPlan const& clip, unsigned track, std::filesystem::path const& wave, Tally& tally) {
    auto const channels = loadWave(wave, clip.subchannels);
    require(channels[0].size() > FIRST_RECORDING_SAMPLES, wave.string() + " is too short for two recordings");
    recordRange(track, channels, 0, FIRST_RECORDING_SAMPLES, tally);
    recordRange(track, channels, FIRST_RECORDING_SAMPLES, channels[0].size(), tally);
    tally.units += track_length_in_units(track);
    tally.bytes += std::uint64_t{track_length_in_units(track)} * track_unit_size(track);
}

void playStreams(ClipPlan const& clip, unsigned track, std::filesystem::path const& wave, Tally& tally) {
    unsigned reader = 0;
    require(seqread_begin(track, &reader), "seqread_begin");
    auto const total = seqread_samples_remaining(reader);
    std::vector<Samples> heard(clip.subchannels, Samples(static_cast<std::size_t>(total)));
    std::vector<std::int32_t*> buffers(clip.subchannels);
    for (std::uint64_t at = 0; at < total;) {
        auto const count = static_cast<unsigned>(std::min<std::uint64_t>(SAMPLES_PER_CALL, total - at));
        for (std::size_t i = 0; i < heard.size(); ++i)
            buffers[i] = heard[i].data() + at;
        require(tally.timed([&] { return seqread_read(reader, buffers.data(), count); }), "seqread_read");
        at += count;
    }
    require(seqread_samples_remaining(reader) == 0, "samples remain after the last one");
    seqread_finish(reader);

    auto const recorded = loadWave(wave, clip.subchannels);
    for (std::size_t i = 0; i < heard.size(); ++i) {
        Model model(cadenceOf(clip));
        auto const join = recorded[i].begin() + FIRST_RECORDING_SAMPLES;
        model.record(recorded[i].begin(), join);
        model.record(join, recorded[i].end());
        auto const expected = std::move(model).delivered(heard[i].size());
        auto const differs = std::mismatch(heard[i].begin(), heard[i].end(), expected.begin()).first;
        require(differs == heard[i].end(), "subchannel " + std::to_string(i) + " differs from the model at sample " +
                                               std::to_string(differs - heard[i].begin()));
        tally.samples_compared += heard[i].size();
    }
    tally.units += track_length_in_units(track);
    tally.bytes += std::uint64_t{track_length_in_units(track)} * track_unit_size(track);
}

}  // namespace demo
