#include "clip/clip.h"

#include <algorithm>
#include <utility>

#include "clip/track.h"

namespace KelvonClip {

ClipSettings ClipSettings::ofChild(MetaObject const& meta) {
    ClipSettings settings;
    settings.striped = meta.striped;
    settings.tc0_striped = meta.tc0_striped;
    settings.timecode_track = meta.timecode_track;
    settings.drop_frame = meta.drop_frame;
    settings.timecode = meta.timecode;
    return settings;
}

ClipSettings ClipSettings::of(MetaObject const& meta) {
    ClipSettings settings = ofChild(meta);
    settings.frequency = meta.frequency;
    settings.resolution = meta.resolution;
    settings.trim_start = meta.trim_start;
    settings.trim_end = meta.trim_end;
    return settings;
}

Clip::Clip(ClipSettings const& clip_settings, std::shared_ptr<VFileObject> area, bool opened_read_only)
    : header_settings(clip_settings), read_only(opened_read_only), data_area(std::move(area)) {}

Clip::~Clip() = default;

VideoStandard Clip::videoStandard() const {
    return toVideoStandard(header_settings.resolution, header_settings.frequency);
}

void Clip::adoptTracks(std::vector<std::unique_ptr<Track>> opened) { track_list = std::move(opened); }

std::uint32_t Clip::writtenLength() const { return written_length.hold().value; }

void Clip::raiseWrittenLength(std::uint32_t& track_written_length, std::uint32_t end_in_fields) {
    auto clip_mark = written_length.hold();
    track_written_length = std::max(track_written_length, end_in_fields);
    clip_mark.value = std::max(clip_mark.value, end_in_fields);
}

}  // namespace KelvonClip
