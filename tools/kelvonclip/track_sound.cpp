#include "track_sound.h"

#include <algorithm>
#include <mutex>
#include <optional>

#include "audio/audio_track.h"
#include "audio/hemlock_block.h"
#include "failure.h"
#include "reason.h"

namespace tool {

using namespace KelvonClip;

// The units that the reader asks for. Keeps the first one that cannot be read: all before it could.
class TrackSound::Units : public TrackUnits {
  public:
    explicit Units(Track& of) : track(of) {}

    std::uint32_t lengthInUnits() override { return track.lengthInUnits(); }

    void read(std::uint32_t first, std::uint32_t count, void* to, KString* errors) override {
        std::uint32_t const size = track.unitSize();
        std::fill_n(errors, count, KString());
        if (track.readUnits(first, count, to, size).empty()) return;
        for (std::uint32_t i = 0; i < count; ++i) {
            errors[i] = track.readUnit(first + i, static_cast<std::byte*>(to) + std::size_t{i} * size);
            if (!errors[i].empty()) note(first + i);
        }
    }

    KString write(std::uint32_t, std::uint32_t, void const*) override { return "Clip is read-only"; }

    std::optional<std::uint64_t> firstUnreadable() const {
        std::lock_guard const guard(lock);
        return unreadable;
    }

  private:
    void note(std::uint32_t unit) {
        std::lock_guard const guard(lock);
        unreadable = std::min<std::uint64_t>(unit, unreadable.value_or(unit));
    }

    Track& track;
    mutable std::mutex lock;
    std::optional<std::uint64_t> unreadable;
};

TrackSound::TrackSound(ClipView const& of, std::uint64_t number, UnitRange const& range,
                       std::vector<std::uint32_t> const& subchannels)
    : clip(of), track(number), planar(subchannels.size() * CHUNK) {
    TrackView const& view = clip.readable(track);
    AudioTrackShape const shape{clip.header().frequency, view.format.subchannel_count, view.track->lengthInFields()};
    hemlock::Cadence const& cadence = hemlock::cadenceOf(shape.frequency);
    auto const sampleOf = [&](std::uint32_t unit) { return cadence.totalSamples(unit * view.format.fields_per_unit); };
    total = sampleOf(range.to) - sampleOf(range.from);
    of_subchannels.resize(shape.subchannel_count);
    for (std::size_t i = 0; i < subchannels.size(); ++i) {
        wanted.push_back(planar.data() + i * CHUNK);
        of_subchannels[subchannels[i]] = wanted.back();
    }
    units = std::make_shared<Units>(*view.track);
    reader = std::make_unique<HemlockReader>(shape, units);
    if (range.from > 0) reader->seek(sampleOf(range.from));
}

TrackSound::~TrackSound() = default;

void TrackSound::read(std::int32_t* samples, std::size_t frames) {
    if (KString const error = reader->read(of_subchannels.data(), static_cast<std::uint32_t>(frames)); !error.empty())
        throw Failure(FAILED, {clip.path(), track, units->firstUnreadable()}, reasonText(error));
    for (std::size_t i = 0; i < frames; ++i)
        for (std::int32_t const* const channel : wanted)
            *samples++ = channel[i];
}

}  // namespace tool
