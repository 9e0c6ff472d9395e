// A clip that is made from parts: what it is to hold, and the file that comes to be under a temporary name.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include <kelvonclip/kelvon_std.h>
#include <kelvonclip/kelvon_timecode.h>
#include <kelvonclip/units.h>

#include "clip/clip_edit.h"
#include "clip/clip_header.h"
#include "output_file.h"
#include "picture_format.h"

namespace tool {

struct ClipPlan {
    std::string path;
    KelvonClip::VideoStandard standard = KelvonClip::VideoStandard::none;
    EssenceKind kind = EssenceKind::unknown;  // of the pictures; unknown: there are none
    PictureFormat format;
    std::uint32_t video_tracks = 0, key_tracks = 0, audio_tracks = 0, subchannels = 0;
    bool timecode_track = false;
    KelvonClip::KTimecode first_timecode;                                      // undefined: the clip counts from 0
    bool striped = false, tc0_striped = false, timecode_track_source = false;  // at most one of them
    std::vector<KelvonClip::HeaderEdit> texts;
};

// What the clip would be: its header, and how many units its tracks have room for, in the order of the header. Throws
// Failure for what the library cannot create.
struct PlannedClip {
    std::shared_ptr<KelvonClip::MetaObject const> header;
    std::vector<std::uint64_t> room;
};
PlannedClip planClip(ClipPlan const& plan);

// Threads: one at a time.
class NewClip {
  public:
    // Throws Failure; nothing is left then.
    NewClip(ClipPlan const& plan, bool force);
    NewClip(NewClip const&) = delete;
    NewClip& operator=(NewClip const&) = delete;
    ~NewClip();

    // In the order of the header: video, key, audio, timecode.
    unsigned track(unsigned index) const;
    // Throws Failure that names the file, and the track and the unit if it is one.
    void write(std::span<KelvonClip::UnitRun const> runs);
    // Samples of each subchannel of an audio track, which is the `index`-th of them; null: silence.
    void writeSound(unsigned index, std::span<std::int32_t const* const> subchannels, unsigned samples);
    // Gives the file its name when everything is on the disk. Without this call nothing is left. Throws Failure.
    void finish();

  private:
    void require(wchar_t const* message) const;
    void create(ClipPlan const& plan);
    void closeQuietly();

    std::string const path, working_name;
    bool const overwrites;
    Unfinished const unfinished;
    unsigned creation = 0, clip = 0;
    std::vector<unsigned> writers;  // of the audio tracks
};

}  // namespace tool
