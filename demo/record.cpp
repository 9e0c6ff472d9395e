#include <kelvonclip/kelvonclip.h>

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

// Configures a clip under creation.
void configure(ClipPlan const& clip, unsigned creation) {
    require(cfg_track_count_video(creation, clip.video_essence != nullptr), "cfg_track_count_video");
    require(cfg_track_count_key(creation, clip.key_essence != nullptr), "cfg_track_count_key");
    switch (clip.video) {
    case Video::avci:
        require(cfg_video_avci(creation), "cfg_video_avci");
        break;
    case Video::dv:
        require(cfg_video_dv(creation), "cfg_video_dv");
        break;
    case Video::j2k:
        require(cfg_video_j2k(creation, J2K_LUMA, J2K_CHROMA, J2K_KEY), "cfg_video_j2k");
        break;
    case Video::none:
        break;
    }
    if (clip.audio != Audio::none) {
        require(cfg_track_count_audio(creation, 1), "cfg_track_count_audio");
        require(cfg_audio_hemlock(creation, clip.subchannels), "cfg_audio_hemlock");
    }
    bool const track = clip.timecode == Timecode::track, tc0 = clip.timecode == Timecode::tc0_striped;
    if (track || tc0) require(cfg_track_timecode(creation), "cfg_track_timecode");
    require(cfg_clip_timecode2(creation, clip.first_timecode, clip.drop_frame, track, tc0), "cfg_clip_timecode2");
}

// The units of one track of the open clip. Audio streams have none here; they are recorded separately.
std::vector<Bytes> unitsFor(ClipPlan const& clip, unsigned track, std::filesystem::path const& essence,
                            std::size_t frames) {
    switch (track_category(track)) {
    case TrackCategory::video:
        return loadUnits(essence / clip.video_essence, frameBytes(clip));
    case TrackCategory::key:
        return loadUnits(essence / clip.key_essence, frameBytes(clip));
    case TrackCategory::audio: {
        std::vector<Bytes> units;
        if (clip.audio == Audio::streams) return units;
        auto const samples = loadWave(essence / clip.audio_essence, clip.subchannels);
        for (std::size_t unit = 0; (unit + 1) * SAMPLES_PER_UNIT_AT_50 <= samples[0].size(); ++unit)
            units.push_back(frameAudioUnit(samples, unit));
        return units;
    }
    case TrackCategory::timecode: {
        std::vector<Bytes> units;
        for (std::uint32_t field = 0; field < 2 * frames; ++field)
            units.push_back(frameTimecodeUnit(clip.first_timecode + field, track_unit_size(track)));
        return units;
    }
    case TrackCategory::none:
        break;
    }
    throw Failure("a track has no category");
}

struct Source {
    unsigned track;
    std::vector<Bytes> units;
    std::size_t per_frame;  // units for each frame of video
    std::size_t next = 0;
};

}  // namespace

Tally record(ClipPlan const& clip, std::filesystem::path const& essence, std::filesystem::path const& clips) {
    Tally tally;
    std::wstring const file = wideName(clips / (std::string(clip.name) + ".clip"));
    VideoStandard const standard = toVideoStandard(clip.standard);

    unsigned creation = 0, open = 0;
    require(create_begin(file.c_str(), standard, &creation), "create_begin");
    configure(clip, creation);
    require(tally.timed([&] { return create_finish(creation, &open); }), "create_finish");

    std::size_t frames = 0;
    std::vector<Source> sources;
    tally.tracks = clip_track_count(open);
    for (unsigned index = 0; index < tally.tracks; ++index) {
        unsigned const track = clip_get_track(open, index);
        auto units = unitsFor(clip, track, essence, frames);
        if (track_category(track) == TrackCategory::video) frames = units.size() * track_fields_per_unit(track) / 2;
        sources.push_back({track, std::move(units), 2 / track_fields_per_unit(track)});
    }

    // The order of a video server: all units of a frame, then those of the next frame.
    bool more = true;
    while (more) {
        more = false;
        for (auto& source : sources)
            for (std::size_t i = 0; i < source.per_frame && source.next < source.units.size(); ++i, ++source.next) {
                Bytes const& unit = source.units[source.next];
                auto const number = static_cast<unsigned>(source.next);
                auto const size = static_cast<unsigned>(unit.size());
                require(tally.timed([&] { return track_write(source.track, number, unit.data(), size); }),
                        "track_write of unit " + std::to_string(number));
                ++tally.units;
                tally.bytes += unit.size();
                more = true;
            }
    }
    for (auto const& source : sources)
        if (track_category(source.track) == TrackCategory::audio && clip.audio == Audio::streams)
            recordStreams(clip, source.track, essence / clip.audio_essence, tally);
    tally.timed([&] { clip_close(open); });
    return tally;
}

}  // namespace demo
