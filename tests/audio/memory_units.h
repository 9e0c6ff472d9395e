// An audio track in memory: an implementation of the interface between the sample streams and the clip layer.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <random>
#include <set>
#include <vector>

#include "audio/audio_track.h"
#include "support/audio_model.h"

namespace KelvonClip::model {

// A track in memory. Threads: any.
class MemoryUnits : public TrackUnits {
  public:
    explicit MemoryUnits(AudioTrackShape const& its_shape) : shape(its_shape) {}

    std::uint32_t lengthInUnits() override {
        std::lock_guard const hold(mutex);
        return static_cast<std::uint32_t>(units.size());
    }
    void read(std::uint32_t first, std::uint32_t count, void* to, KString* errors) override {
        if (before_read) before_read(first);
        std::lock_guard const hold(mutex);
        for (std::uint32_t i = 0; i < count; ++i) {
            ++reads;
            auto const fault = read_faults.find(first + i);
            errors[i] = fault != read_faults.end() && fault->second-- > 0 ? KString("read fault") : KString();
            auto* place = static_cast<std::uint8_t*>(to) + std::size_t{i} * shape.unitSize();
            if (first + i < units.size())
                std::copy_n(units[first + i].data(), shape.unitSize(), place);
            else
                std::fill_n(place, shape.unitSize(), std::uint8_t{0});
        }
    }
    KString write(std::uint32_t first, std::uint32_t count, void const* from) override {
        std::lock_guard const hold(mutex);
        ++writes;
        if (write_faults > 0) {
            --write_faults;
            return KString("write fault");
        }
        auto const bad = bad_units.lower_bound(first);
        if (bad != bad_units.end() && *bad < first + count) return KString("write fault");
        if (units.size() < first + count) units.resize(first + count, Bytes(shape.unitSize()));
        auto const* unit = static_cast<std::uint8_t const*>(from);
        for (std::uint32_t i = 0; i < count; ++i, unit += shape.unitSize())
            std::copy_n(unit, shape.unitSize(), units[first + i].data());
        return {};
    }

    std::uint8_t* block(std::size_t unit, std::uint32_t subchannel) {
        return units[unit].data() + std::size_t{subchannel} * shape.blockSize();
    }
    // What a reader of this track delivers.
    Stream stream(std::uint32_t subchannel, std::size_t silent_units_after_the_end = 0) {
        Stream expected(rateOf(shape.frequency));
        Bytes const nothing(shape.blockSize(), 0);
        for (std::size_t unit = 0; unit < units.size() + silent_units_after_the_end; ++unit) {
            expected.feed(unit < units.size() ? block(unit, subchannel) : nothing.data(), unit);
        }
        return expected;
    }
    AudioTrackShape shapeNow() const {
        return {shape.frequency, shape.subchannel_count, static_cast<std::uint32_t>(units.size())};
    }

    AudioTrackShape const shape;
    std::vector<Bytes> units;
    std::function<void(std::uint32_t)> before_read;  // runs on the reading thread, outside the lock
    std::map<std::uint32_t, int> read_faults;        // unit: how many more reads of it fail
    int write_faults = 0;                            // how many more writes fail
    std::set<std::uint32_t> bad_units;               // every write of one of them fails
    std::uint64_t reads = 0, writes = 0;

  private:
    std::mutex mutex;
};

// Appends a recording of `unit_count` units of noise, with the flags of one that ends inside a block.
inline void record(MemoryUnits& track, std::mt19937& random, std::size_t unit_count, bool fade_out = true) {
    Rate const& rate = rateOf(track.shape.frequency);
    auto const first_word = static_cast<std::uint32_t>(random());
    for (std::size_t i = 0; i < unit_count; ++i) {
        track.units.emplace_back(track.shape.unitSize());
        std::size_t const phase = i % rate.cycle.size();
        for (std::uint32_t s = 0; s < track.shape.subchannel_count; ++s) {
            auto const flags = (i == 0 ? 1 : 0) | (fade_out && i + 1 == unit_count ? 2 : 0);
            build({.flags = static_cast<std::uint8_t>(flags),
                   .phase = static_cast<std::uint8_t>(phase),
                   .block_byte = static_cast<std::uint8_t>(s),
                   .rate_code = rate.code,
                   .block_word = first_word + s * 1000 + static_cast<std::uint32_t>(i),
                   .samples = noise(random, rate.cycle[phase])},
                  track.block(track.units.size() - 1, s), track.shape.blockSize());
        }
    }
}

}  // namespace KelvonClip::model
