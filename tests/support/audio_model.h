// An independent model of hemlock audio for tests, written from the description of the format: the rates, a block
// builder that writes single bytes, and a reader that works on copies. It shares no code with the library.
#pragma once

#include <kelvonclip/kelvon_std.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

namespace KelvonClip::model {

struct Rate {
    VideoFrequency frequency;
    std::uint32_t fields_per_second;  // rounded
    bool fractional;
    std::uint8_t code;
    std::vector<std::uint32_t> cycle;  // samples of successive blocks of one recording
    std::uint32_t block_bytes;
    VideoStandard standard;  // any standard of this rate
};

inline std::vector<Rate> const& rates() {
    static std::vector<Rate> const all = {
        {VideoFrequency::f60, 60, false, 2, {800}, 4096, VideoStandard::s1080i_60},
        {VideoFrequency::f59_94, 60, true, 3, {801, 801, 801, 801, 800}, 4096, VideoStandard::s1080i_59_94},
        {VideoFrequency::f50, 50, false, 1, {960}, 4096, VideoStandard::s1080i_50},
        {VideoFrequency::f48, 48, false, 4, {1000}, 4096, VideoStandard::s1080i_48},
        {VideoFrequency::f47_95, 48, true, 5, {1001}, 4096, VideoStandard::s1080i_47_95},
        {VideoFrequency::f30, 30, false, 6, {1600}, 8192, VideoStandard::s1080p_30},
        {VideoFrequency::f29_97, 30, true, 7, {1602, 1602, 1602, 1602, 1600}, 8192, VideoStandard::s1080p_29_97},
        {VideoFrequency::f25, 25, false, 8, {1920}, 8192, VideoStandard::s1080p_25},
        {VideoFrequency::f24, 24, false, 9, {2000}, 8192, VideoStandard::s1080p_24},
        {VideoFrequency::f23_98, 24, true, 10, {2002}, 8192, VideoStandard::s1080p_23_98},
    };
    return all;
}
inline Rate const& rateOf(VideoFrequency frequency) { return *std::ranges::find(rates(), frequency, &Rate::frequency); }

inline std::int64_t samplesInTenUnits(Rate const& rate) {
    return rate.fractional ? 480000 / rate.fields_per_second / 1000 * 1001 : 480000 / rate.fields_per_second;
}

inline std::int32_t fadeOutGain(int i) { return (2 * 256 * (99 - i) + 100) / 200; }
inline std::int32_t fadeInGain(int i) { return fadeOutGain(99 - i); }

using Samples = std::vector<std::int32_t>;
using Bytes = std::vector<std::uint8_t>;

inline Samples noise(std::mt19937& random, std::size_t count) {
    Samples samples(count);
    for (auto& sample : samples)
        sample = static_cast<std::int32_t>(static_cast<std::uint32_t>(random()));
    return samples;
}

struct Block {
    std::uint32_t magic = 0x7D3E9A51;
    std::uint8_t flags = 0, phase = 0, block_byte = 0, rate_code = 0;
    std::uint32_t block_word = 0;
    Samples samples;
};

inline void put32(std::uint8_t* to, std::uint32_t number) {
    for (int i = 0; i < 4; ++i)
        to[i] = static_cast<std::uint8_t>(number >> (8 * i));
}
inline std::uint32_t get32(std::uint8_t const* from) {
    return from[0] | std::uint32_t{from[1]} << 8 | std::uint32_t{from[2]} << 16 | std::uint32_t{from[3]} << 24;
}

// Writes a block of `size` bytes to `to`.
inline void build(Block const& block, std::uint8_t* to, std::uint32_t size) {
    std::fill_n(to, size, std::uint8_t{0});
    put32(to, block.magic);
    to[4] = block.flags;
    to[5] = block.phase;
    to[6] = block.block_byte;
    to[7] = block.rate_code;
    put32(to + 8, block.block_word);
    for (std::size_t i = 0; i < block.samples.size(); ++i) {
        put32(to + 32 + 4 * i, static_cast<std::uint32_t>(block.samples[i]));
    }
}

// A block, decoded from its bytes.
inline Block parse(std::uint8_t const* from, Rate const& rate) {
    Block block{get32(from), from[4], from[5], from[6], from[7], get32(from + 8), {}};
    std::uint32_t const count = rate.cycle[block.phase % rate.cycle.size()];
    for (std::uint32_t i = 0; i < count; ++i) {
        block.samples.push_back(static_cast<std::int32_t>(get32(from + 32 + 4 * i)));
    }
    return block;
}

// The stream of one subchannel; every step works on a copy of the block.
class Stream {
  public:
    explicit Stream(Rate const& of) : rate(of) {}

    void feed(std::uint8_t const* from, std::uint64_t unit) {
        bool const phase_valid = rate.cycle.size() == 5 ? from[5] <= 4 : from[5] == 0;
        bool const valid = get32(from) == 0x7D3E9A51 && from[7] == rate.code && phase_valid;
        std::size_t const phase = valid ? from[5] : static_cast<std::size_t>(unit % 5);
        Samples block(rate.cycle[phase % rate.cycle.size()], 0);
        if (valid) block = parse(from, rate).samples;
        feed(block, valid, valid && (from[4] & 1) != 0, valid && (from[4] & 2) != 0);
    }

    void feed(Samples const& block, bool valid, bool fade_in, bool fade_out) {
        Samples head(block.begin(), block.begin() + 100);
        Samples const middle(block.begin() + 100, block.end() - 100);
        Samples tail(block.end() - 100, block.end());
        if (!valid || fade_in) {
            if (drift >= 20)
                head.erase(head.begin());
            else if (drift <= -20)
                push({block.front()});
        }
        if (fade_in) {
            for (std::size_t i = 0; i < head.size(); ++i)
                head[i] = head[i] / 256 * fadeInGain(static_cast<int>(i));
        }
        if (fade_out) {
            for (std::size_t i = 0; i < tail.size(); ++i)
                tail[i] = tail[i] / 256 * fadeOutGain(static_cast<int>(i));
        }
        push(head);
        push(middle);
        push(tail);
        drift -= samplesInTenUnits(rate);
    }

    Samples samples;
    std::int64_t drift = 0;

  private:
    void push(Samples const& more) {
        samples.insert(samples.end(), more.begin(), more.end());
        drift += 10 * static_cast<std::int64_t>(more.size());
    }
    Rate const& rate;
};

}  // namespace KelvonClip::model
