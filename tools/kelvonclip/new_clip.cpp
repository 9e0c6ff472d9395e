#include "new_clip.h"

#include <array>
#include <cstddef>
#include <string_view>
#include <utility>

#include <kelvonclip/kelvon_clip.h>
#include <kelvonclip/seq_write.h>
#include <kelvonclip/track.h>

#include "clip/create_clip.h"
#include "clip/info_j2k.h"
#include "clip/track_format.h"
#include "command.h"
#include "failure.h"
#include "foundation/kstring.h"
#include "reason.h"
#include "text.h"
#include "vfile/vfilefile.h"

namespace tool {

using namespace KelvonClip;

namespace {

ClipDescription descriptionOf(ClipPlan const& plan) {
    ClipDescription description;
    description.standard = plan.standard;
    description.video_track_count = plan.video_tracks;
    description.key_track_count = plan.key_tracks;
    description.video_kind = videoType(plan.kind);
    description.avc_mbits = plan.format.video.avc_class;
    description.j2k_mbits = j2kBitRateForSizes(plan.standard, plan.format.video.luma_size,
                                               plan.format.video.chroma_size, plan.format.key.unit_size);
    description.audio_track_count = plan.audio_tracks;
    description.audio_subchannel_count = plan.subchannels;
    description.timecode_track = plan.timecode_track;
    description.striped = plan.striped;
    description.tc0_striped = plan.tc0_striped;
    description.timecode_track_source = plan.timecode_track_source;
    description.drop_frame = plan.first_timecode.is_df();
    description.stripe_offset = plan.first_timecode.get_nfields();
    return description;
}

}  // namespace

PlannedClip planClip(ClipPlan const& plan) {
    auto const require = [&](KString const& error) {
        if (!error.empty()) throw Failure(FAILED, {plan.path}, reasonText(error));
    };
    ClipDescription const description = descriptionOf(plan);
    ClipLayout const layout = layOutClip(description);
    require(layout.error);
    HeaderText const bare = newClipHeader(description, layout);
    require(bare.error);
    HeaderText const text = editHeaderText(*bare.area, false, plan.texts);
    require(text.error);
    HeaderRead const header = parseClipHeader({text.area->bytes.data(), text.area->bytes.size()});
    require(header.error);
    PlannedClip planned{header.meta, {}};
    for (PlannedTrack const& track : layout.tracks) {
        TrackFormat const format = describeTrackFormat(track.format_name, plan.standard);
        constexpr std::uint64_t GROW_HEADER = 4096;
        planned.room.push_back((track.length - GROW_HEADER) / format.stored_unit_size);
    }
    return planned;
}

NewClip::NewClip(ClipPlan const& plan, bool force)
    : path(plan.path), working_name(temporaryName(path)), overwrites(force),
      unfinished((requireFree(path, force), working_name)) {
    try {
        create(plan);
    } catch (...) {
        closeQuietly();
        throw;
    }
}

NewClip::~NewClip() { closeQuietly(); }

void NewClip::create(ClipPlan const& plan) {
    require(create_begin(wide(working_name).c_str(), plan.standard, &creation));
    require(cfg_track_count_video(creation, plan.video_tracks));
    require(cfg_track_count_key(creation, plan.key_tracks));
    FormatInfo const& video = plan.format.video;
    if (plan.kind == EssenceKind::avc) require(cfg_video_avci(creation));
    if (plan.kind == EssenceKind::dv) require(cfg_video_dv(creation));
    if (plan.kind == EssenceKind::j2k)
        require(cfg_video_j2k(creation, video.luma_size, video.chroma_size, plan.format.key.unit_size));
    if (plan.audio_tracks != 0) {
        require(cfg_track_count_audio(creation, plan.audio_tracks));
        require(cfg_audio_hemlock(creation, plan.subchannels));
    }
    if (plan.timecode_track) require(cfg_track_timecode(creation));
    if (plan.striped || plan.tc0_striped || plan.timecode_track_source)
        require(cfg_clip_timecode2(creation, plan.first_timecode.get_nfields(), plan.first_timecode.is_df(),
                                   plan.timecode_track_source, plan.tc0_striped));
    require(create_finish(creation, &clip));
    creation = 0;
    // What is not finished is not kept, so nobody needs its lengths.
    require(clip_checkpoint_every(clip, 0, false));
    if (!plan.texts.empty()) {
        KString const error = editHeader(clip, "invalid clip handle", plan.texts).error;
        if (!error.empty()) throw Failure(FAILED, {path}, reasonText(error));
    }
    for (unsigned i = 0; i < plan.audio_tracks; ++i) {
        unsigned writer = 0;
        require(seqwrite_begin(track(plan.video_tracks + plan.key_tracks + i), &writer));
        writers.push_back(writer);
    }
}

void NewClip::closeQuietly() {
    for (unsigned const writer : std::exchange(writers, {}))
        seqwrite_finish(writer);
    if (creation != 0) create_cancel(std::exchange(creation, 0u));
    if (clip != 0) clip_close(std::exchange(clip, 0u));
}

void NewClip::require(wchar_t const* message) const {
    if (message != nullptr) throw Failure(FAILED, {path}, reasonText(message));
}

unsigned NewClip::track(unsigned index) const { return clip_get_track(clip, index); }

void NewClip::write(std::span<UnitRun const> runs) {
    std::vector<unsigned> done(runs.size());
    wchar_t const* const message = clip_write_units(clip, runs.data(), static_cast<unsigned>(runs.size()), done.data());
    if (message == nullptr) return;
    for (std::size_t i = 0; i < runs.size(); ++i) {
        if (done[i] == runs[i].count) continue;
        std::uint64_t number = 0;
        while (number < clip_track_count(clip) && track(static_cast<unsigned>(number)) != runs[i].track)
            ++number;
        throw Failure(FAILED, {path, number, std::uint64_t{runs[i].first} + done[i]}, reasonText(message));
    }
    require(message);
}

void NewClip::writeSound(unsigned index, std::span<std::int32_t const* const> subchannels, unsigned samples) {
    require(seqwrite_write(writers.at(index), subchannels.data(), samples));
}

void NewClip::finish() {
    for (unsigned& writer : writers)
        require(seqwrite_finish(std::exchange(writer, 0u)));
    writers.clear();
    require(clip_close_checked(std::exchange(clip, 0u)));
    giveName(working_name, path, overwrites);
    // The name is on the disk too when the clip is announced.
    auto const renamed = VFileFile::open(kstring(path), false);
    if (!renamed.file) throw Failure(FAILED, {path}, reasonText(renamed.error));
    if (KString const fault = renamed.file->flushName(); !fault.empty())
        throw Failure(FAILED, {path}, reasonText(fault));
}

}  // namespace tool
