#include "audio/audio_track.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "clip/clip_directory.h"
#include "vfile/vfileobject.h"

namespace KelvonClip {

namespace {

class UnitsByHandle : public TrackUnits {
  public:
    UnitsByHandle(std::uint32_t handle, std::uint32_t size) : track_handle(handle), unit_size(size) {}

    std::uint32_t lengthInUnits() override {
        auto const found = findTrack(track_handle);
        return found ? found.track->lengthInUnits() : 0;
    }

    void read(std::uint32_t first, std::uint32_t count, void* to, KString* errors) override {
        // Held until the reads are complete, so that closing the clip does not destroy the track meanwhile.
        auto const found = findTrack(track_handle);
        std::fill_n(errors, count, found ? KString() : KString("Bad Handle"));
        if (!found) return;
        if (found.track->readUnits(first, count, to, unit_size).empty()) return;
        // One of them cannot be read: which one?
        for (std::uint32_t i = 0; i < count; ++i)
            errors[i] = found.track->readUnit(first + i, static_cast<std::byte*>(to) + std::size_t{i} * unit_size);
    }

    KString write(std::uint32_t first, std::uint32_t count, void const* from) override {
        return writeTrackUnits(track_handle, first, count, from);
    }

  private:
    std::uint32_t const track_handle;
    std::uint32_t const unit_size;
};

}  // namespace

KString checkAudioTrack(TrackAudioType type, void const* handle_out, VideoStandard standard) {
    if (type != TrackAudioType::hemlock) return "Track does not use the hemlock audio codec";
    if (handle_out == nullptr) return "Invalid argument (null pointer)";
    if (!isValid(standard)) return "Invalid video standard";
    return {};
}

AudioTrack findAudioTrack(std::uint32_t track_handle, void const* handle_out) {
    AudioTrack audio;
    auto const found = findTrack(track_handle);
    audio.error = found ? checkAudioTrack(found.track->format().audio_type, handle_out, found.track->videoStandard())
                        : checkAudioTrack(TrackAudioType::none, handle_out, VideoStandard::none);
    if (!audio.error.empty()) return audio;
    audio.shape = {found.track->videoFrequency(), found.track->format().subchannel_count,
                   found.track->lengthInFields()};
    audio.units = std::make_shared<UnitsByHandle>(track_handle, audio.shape.unitSize());
    return audio;
}

}  // namespace KelvonClip
