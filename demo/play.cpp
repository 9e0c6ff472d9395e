#include <kelvonclip/kelvonclip.h>

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "demo.h"

namespace demo {

namespace {

using namespace KelvonClip;

// A unit buffer with the alignment for transfers without a copy.
class UnitBuffer {
  public:
    explicit UnitBuffer(std::size_t bytes) : start(::operator new(bytes, ALIGNMENT)) {}
    ~UnitBuffer() { ::operator delete(start, ALIGNMENT); }
    UnitBuffer(UnitBuffer const&) = delete;
    UnitBuffer& operator=(UnitBuffer const&) = delete;
    void* data() const { return start; }

  private:
    static constexpr std::align_val_t ALIGNMENT{4096};
    void* start;
};

std::vector<Bytes> readUnits(unsigned track, Tally& tally) {
    std::vector<Bytes> units(track_length_in_units(track));
    UnitBuffer const buffer(track_unit_size(track));
    auto const* const bytes = static_cast<std::byte const*>(buffer.data());
    for (unsigned number = 0; number < units.size(); ++number) {
        require(tally.timed([&] { return track_read(track, number, buffer.data()); }),
                "track_read of unit " + std::to_string(number));
        units[number].assign(bytes, bytes + track_unit_size(track));
        ++tally.units;
        tally.bytes += track_unit_size(track);
    }
    return units;
}

// Every unit must be the essence, padded with zeros to the unit size.
void compare(std::vector<Bytes> const& units, std::vector<Bytes> const& expected, std::string const& what) {
    require(units.size() == expected.size(),
            what + ": " + std::to_string(units.size()) + " units came back of " + std::to_string(expected.size()));
    for (std::size_t i = 0; i < units.size(); ++i) {
        auto const padding = units[i].begin() + static_cast<std::ptrdiff_t>(expected[i].size());
        bool const same = std::equal(units[i].begin(), padding, expected[i].begin(), expected[i].end()) &&
                          std::all_of(padding, units[i].end(), [](std::byte b) { return b == std::byte{0}; });
        require(same, what + ": unit " + std::to_string(i) + " differs from its essence");
    }
}

void extract(ClipPlan const& clip, std::vector<Bytes> units, std::filesystem::path const& to) {
    for (auto& unit : units)
        unit.resize(essenceBytes(clip, unit));
    if (clip.video != Video::j2k) return writeFile(to, units);
    for (std::size_t i = 0; i < units.size(); ++i)
        writeFile(to / (std::to_string(100000 + i).substr(1) + ".j2k"), {units[i]});
}

void playPictures(ClipPlan const& clip, unsigned track, char const* name, std::filesystem::path const& essence,
                  std::filesystem::path const& extracted, Tally& tally) {
    auto units = readUnits(track, tally);
    compare(units, loadUnits(essence / name, frameBytes(clip)), name);
    extract(clip, std::move(units), extracted / clip.name / name);
}

void playAudioUnits(ClipPlan const& clip, unsigned track, std::filesystem::path const& essence, Tally& tally) {
    auto const samples = loadWave(essence / clip.audio_essence, clip.subchannels);
    std::vector<Bytes> expected;
    for (std::size_t unit = 0; (unit + 1) * SAMPLES_PER_UNIT_AT_50 <= samples[0].size(); ++unit)
        expected.push_back(frameAudioUnit(samples, unit));
    compare(readUnits(track, tally), expected, clip.audio_essence);
}

// Checks the label of every field of a timecode track, read as a unit and as a timecode. If one timecode applies to the
// whole track, the label follows from the first one and the unit number.
void playTimecode(ClipPlan const& clip, unsigned track, Tally& tally) {
    auto const units = readUnits(track, tally);
    for (unsigned number = 0; number < units.size(); ++number) {
        unsigned timecode = 0;
        bool drop_frame = true;
        require(track_get_timecode(track, number, &timecode, &drop_frame), "track_get_timecode");
        require(timecode == clip.first_timecode + number && drop_frame == clip.drop_frame,
                "timecode of unit " + std::to_string(number) + " differs");
        require(units[number] == frameTimecodeUnit(clip.first_timecode + number, track_unit_size(track)),
                "timecode unit " + std::to_string(number) + " differs");
    }
}

void checkClipTimecode(ClipPlan const& clip, unsigned open) {
    unsigned timecode = 1;
    bool drop_frame = !clip.drop_frame;
    wchar_t const* const message = clip_get_timecode(open, &timecode, &drop_frame);
    if (clip.timecode == Timecode::track) {
        require(message != nullptr && std::wstring(message) == L"TC in track",
                "the clip's timecode is not in its track");
    } else {
        require(message, "clip_get_timecode");
        require(timecode == clip.first_timecode, "the clip's timecode differs");
    }
    require(drop_frame == clip.drop_frame, "the clip's drop-frame flag differs");
}

}  // namespace

Tally play(ClipPlan const& clip, std::filesystem::path const& essence, std::filesystem::path const& clips,
           std::filesystem::path const& extracted) {
    Tally tally;
    std::wstring const file = wideName(clips / (std::string(clip.name) + ".clip"));
    unsigned open = 0;
    require(tally.timed([&] { return clip_open(file.c_str(), &open); }), "clip_open");
    require(clip_get_video_standard(open) == toVideoStandard(clip.standard), "the video standard differs");
    checkClipTimecode(clip, open);

    tally.tracks = clip_track_count(open);
    unsigned const expected_tracks = (clip.video_essence != nullptr) + (clip.key_essence != nullptr) +
                                     (clip.audio != Audio::none) + (clip.timecode != Timecode::striped);
    require(tally.tracks == expected_tracks, "a track is missing");
    for (unsigned index = 0; index < tally.tracks; ++index) {
        unsigned const track = clip_get_track(open, index);
        switch (track_category(track)) {
        case TrackCategory::video:
            playPictures(clip, track, clip.video_essence, essence, extracted, tally);
            break;
        case TrackCategory::key:
            playPictures(clip, track, clip.key_essence, essence, extracted, tally);
            break;
        case TrackCategory::audio:
            if (clip.audio == Audio::streams)
                playStreams(clip, track, essence / clip.audio_essence, tally);
            else
                playAudioUnits(clip, track, essence, tally);
            break;
        case TrackCategory::timecode:
            playTimecode(clip, track, tally);
            break;
        case TrackCategory::none:
            throw Failure("a track has no category");
        }
    }
    tally.timed([&] { clip_close(open); });
    return tally;
}

}  // namespace demo
