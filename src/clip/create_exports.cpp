// The exported functions that create clips. Each cfg_ function changes one setting of a clip under creation.
#include <kelvonclip/info_j2k.h>
#include <kelvonclip/kelvon_clip.h>

#include <cstdint>
#include <utility>

#include "clip/clip_directory.h"
#include "clip/create_directory.h"
#include "clip/info_j2k.h"
#include "clip/track_format.h"
#include "foundation/exported.h"
#include "foundation/kassert.h"

namespace KelvonClip {

namespace {

// The body of a cfg_ function.
template <class Change>
wchar_t const* configure(unsigned int creation, Change&& change) noexcept {
    return exported([&] { return configureCreation(creation, "Bad Handle", change); });
}

KString setTrackCount(std::uint32_t& stored, std::uint32_t count) {
    if (stored != 0) return "Track count can only be set once";
    stored = count;
    return {};
}

KString configureVideo(ClipDescription& clip, TrackVideoType kind) {
    if (clip.video_kind != TrackVideoType::none) return "Video can only be configured once";
    clip.video_kind = kind;
    return {};
}

KString configureJ2k(ClipDescription& clip, std::uint32_t luma, std::uint32_t chroma, std::uint32_t key) {
    if (clip.video_kind != TrackVideoType::none) return "Video can only be configured once";
    if (luma > j2k_video_luma_max_size(clip.standard)) return "Luma size too big";
    if (chroma > j2k_video_chroma_max_size(clip.standard)) return "Chroma size too big";
    if (key > j2k_key_max_size(clip.standard)) return "Key size too big";
    if (!kassert(luma == 0 || chroma != 0, "info_j2k", __LINE__, "chroma_size != 0")) return "Internal error";
    std::uint32_t const mbits = j2kBitRateForSizes(clip.standard, luma, chroma, key);
    if (mbits == 0) return "Internal error while calculating bitrate";
    clip.j2k_mbits = mbits;
    return configureVideo(clip, TrackVideoType::j2k);
}

KString configureHemlock(ClipDescription& clip, std::uint32_t subchannels) {
    if (clip.audio_kind != TrackAudioType::none) return "Audio can only be configured once";
    if (!isCreatableSubchannelCount(subchannels)) return "Bad subchannel count";
    clip.audio_kind = TrackAudioType::hemlock;
    clip.audio_subchannel_count = subchannels;
    return {};
}

}  // namespace

wchar_t const* create_begin(wchar_t const* file_name, VideoStandard standard, unsigned int* creation) {
    return exported([&] { return beginCreation(file_name, standard, creation); });
}

wchar_t const* cfg_track_count_video(unsigned int creation, unsigned int count) {
    return configure(creation, [=](ClipDescription& clip) { return setTrackCount(clip.video_track_count, count); });
}

wchar_t const* cfg_track_count_key(unsigned int creation, unsigned int count) {
    return configure(creation, [=](ClipDescription& clip) { return setTrackCount(clip.key_track_count, count); });
}

wchar_t const* cfg_track_count_audio(unsigned int creation, unsigned int count) {
    return configure(creation, [=](ClipDescription& clip) { return setTrackCount(clip.audio_track_count, count); });
}

wchar_t const* cfg_track_timecode(unsigned int creation) {
    return configure(creation, [](ClipDescription& clip) -> KString {
        if (clip.timecode_track) return "Track count can only be set once";
        clip.timecode_track = true;
        return {};
    });
}

wchar_t const* cfg_video_avci(unsigned int creation) {
    return configure(creation, [](ClipDescription& clip) {
        KString error = configureVideo(clip, TrackVideoType::avc);
        if (error.empty()) clip.avc_mbits = CREATED_AVC_MBITS;
        return error;
    });
}

wchar_t const* cfg_video_dv(unsigned int creation) {
    return configure(creation, [](ClipDescription& clip) { return configureVideo(clip, TrackVideoType::dv); });
}

wchar_t const* cfg_video_j2k(unsigned int creation, unsigned int luma_size, unsigned int chroma_size,
                             unsigned int key_size) {
    return configure(creation,
                     [=](ClipDescription& clip) { return configureJ2k(clip, luma_size, chroma_size, key_size); });
}

wchar_t const* cfg_audio_hemlock(unsigned int creation, unsigned int subchannels) {
    return configure(creation, [=](ClipDescription& clip) { return configureHemlock(clip, subchannels); });
}

wchar_t const* cfg_clip_timecode2(unsigned int creation, unsigned int timecode_offset, bool drop_frame,
                                  bool timecode_track, bool tc0_striped) {
    return exported([&] {
        return configureCreation(creation, "Bad create clip handle", [&](ClipDescription& clip) {
            // KEEP: sets one source and does not clear those set by earlier calls.
            (tc0_striped ? clip.tc0_striped : timecode_track ? clip.timecode_track_source : clip.striped) = true;
            clip.drop_frame = drop_frame;
            clip.stripe_offset = timecode_offset;
            return KString();
        });
    });
}

wchar_t const* cfg_clip_timecode(unsigned int clip, unsigned int creation) {
    return exported([&] {
        auto const source = findClip(clip);
        return configureCreation(creation, "Bad create clip handle", [&](ClipDescription& target) -> KString {
            if (!source) return "Bad clip handle";
            auto const meta = source->meta();
            target.striped = meta->striped;
            target.tc0_striped = meta->tc0_striped;
            target.timecode_track_source = meta->timecode_track;
            target.drop_frame = meta->drop_frame;
            target.stripe_offset = meta->timecode;
            return {};
        });
    });
}

wchar_t const* create_finish(unsigned int creation, unsigned int* clip) {
    return exported([&] { return finishCreation(creation, clip); });
}

wchar_t const* create_cancel(unsigned int creation) {
    return exported([&] { return cancelCreation(creation); });
}

}  // namespace KelvonClip
