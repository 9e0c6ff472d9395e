// The exported track functions.
#include <kelvonclip/kelvon_timecode.h>
#include <kelvonclip/track.h>

#include <algorithm>
#include <array>
#include <cstdint>

#include "clip/clip_directory.h"
#include "foundation/caller_buffer.h"
#include "foundation/exported.h"
#include "vfile/aligned_buffer.h"

namespace KelvonClip {

namespace {

template <class Result, class Question>
Result queryTrack(std::uint32_t handle, Result neutral, Question&& question) noexcept {
    return exportedQuery(neutral, [&] {
        auto const found = findTrack(handle);
        return found ? question(*found.track) : neutral;
    });
}

// A property of the track's format.
template <class Value>
Value formatValue(std::uint32_t handle, Value TrackFormat::*member) noexcept {
    return queryTrack(handle, Value{}, [member](Track const& track) { return track.format().*member; });
}

constexpr std::uint32_t TIMECODE_BYTES = 8;  // size of the timecode at the start of a unit

struct UnitTimecode {
    KString error;  // "Bad Handle" or empty
    KTimecode timecode;
};

// The timecode in a unit of the track; if one timecode applies to the whole track, the one in unit 0.
// KEEP: only "Bad Handle" counts as an error of the read. After any other error the buffer is decoded as it is.
UnitTimecode decodeTimecode(Track& track, std::uint32_t unit) {
    AlignedBuffer buffer(std::max(track.unitSize(), TIMECODE_BYTES));
    KString const error = track.readUnit(track.tc0Striped() ? 0 : unit, buffer.data());
    if (error == KString("Bad Handle")) return {error, {}};
    return {{}, KTimecode::from_tc64(track.videoFrequency(), buffer.data())};
}

KString timecodeOfUnit(std::uint32_t handle, std::uint32_t unit, unsigned int* timecode, bool* drop_frame) {
    auto const found = findTrack(handle);
    if (!found) return "Error using track handle";
    auto const decoded = decodeTimecode(*found.track, unit);
    if (!decoded.error.empty()) return decoded.error;
    if (drop_frame) *drop_frame = decoded.timecode.is_df();
    // KEEP: the unit number is added to a count of fields, whatever the number of fields per unit.
    if (timecode) *timecode = decoded.timecode.get_nfields() + (found.track->tc0Striped() ? unit : 0);
    return {};
}

KString setTimecodeOfUnit(std::uint32_t handle, std::uint32_t unit, unsigned int timecode, bool drop_frame) {
    auto const found = findTrack(handle);
    if (!found) return "Bad Handle";
    if (found.track->format().category != TrackCategory::timecode) return "Not a timecode track";
    KTimecode const label(found.track->videoFrequency(), drop_frame ? DropframeFlag::df : DropframeFlag::ndf, timecode);
    std::array<unsigned char, TIMECODE_BYTES> bytes{};
    label.to_tc64(bytes.data());
    return writeTrackUnit(handle, unit, bytes.data(), TIMECODE_BYTES);
}

bool timecodeValid(Track& track, std::uint32_t unit) {
    auto const decoded = decodeTimecode(track, unit);
    if (!decoded.error.empty()) return false;
    if (!track.tc0Striped()) return decoded.timecode.is_defined();
    // KEEP: compares a count of fields plus a unit number with a number of units.
    return std::uint64_t{decoded.timecode.get_nfields()} + unit <= track.lengthInUnits();
}

}  // namespace

TrackCategory track_category(unsigned int track) { return formatValue(track, &TrackFormat::category); }
TrackVideoType track_video_type(unsigned int track) { return formatValue(track, &TrackFormat::video_type); }
TrackAudioType track_audio_type(unsigned int track) { return formatValue(track, &TrackFormat::audio_type); }
unsigned int track_get_format_name(unsigned int track, wchar_t* buffer, unsigned int size) {
    return exportedText(buffer, size, [&] {
        auto const found = findTrack(track);
        return found ? found.track->formatName() : KString();
    });
}
unsigned int track_audio_subchannel_count(unsigned int track) {
    return formatValue(track, &TrackFormat::subchannel_count);
}
unsigned int track_avc_class(unsigned int track) { return formatValue(track, &TrackFormat::avc_class); }
AVCFlavor track_avc_flavor(unsigned int track) { return formatValue(track, &TrackFormat::flavor); }
unsigned int track_j2k_video_size(unsigned int track) { return formatValue(track, &TrackFormat::j2k_size); }
// KEEP: the same value as track_j2k_video_size, on video and on key tracks.
unsigned int track_j2k_key_size(unsigned int track) { return track_j2k_video_size(track); }
unsigned int track_j2k_video_luma_size(unsigned int track) { return formatValue(track, &TrackFormat::j2k_luma_size); }
unsigned int track_j2k_video_chroma_size(unsigned int track) {
    return formatValue(track, &TrackFormat::j2k_chroma_size);
}

VideoStandard track_get_video_standard(unsigned int track) {
    return queryTrack(track, VideoStandard::none, [](Track const& found) { return found.videoStandard(); });
}
unsigned int track_unit_size(unsigned int track) { return formatValue(track, &TrackFormat::unit_size); }
unsigned int track_fields_per_unit(unsigned int track) { return formatValue(track, &TrackFormat::fields_per_unit); }
unsigned int track_length_in_units(unsigned int track) {
    return queryTrack(track, 0u, [](Track const& found) { return found.lengthInUnits(); });
}
unsigned int track_length_in_fields(unsigned int track) {
    return queryTrack(track, 0u, [](Track const& found) { return found.lengthInFields(); });
}

wchar_t const* track_read(unsigned int track, unsigned int unit, void* buffer) {
    return exported([&] { return readTrackUnit(track, unit, buffer); });
}

wchar_t const* track_write(unsigned int track, unsigned int unit, void const* buffer, unsigned int size) {
    return exported([&] { return writeTrackUnit(track, unit, buffer, size); });
}

wchar_t const* track_get_timecode(unsigned int track, unsigned int unit, unsigned int* timecode, bool* drop_frame) {
    return exported([&] { return timecodeOfUnit(track, unit, timecode, drop_frame); });
}

wchar_t const* track_set_timecode(unsigned int track, unsigned int unit, unsigned int timecode, bool drop_frame) {
    return exported([&] { return setTimecodeOfUnit(track, unit, timecode, drop_frame); });
}

bool track_valid_timecode(unsigned int track, unsigned int unit) {
    return queryTrack(track, false, [unit](Track& found) { return timecodeValid(found, unit); });
}

}  // namespace KelvonClip
