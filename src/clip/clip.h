// Clip: the contents of an open clip file: picture format, trims, timecode settings and tracks.
//
// Invariants
//   * The settings are those of the header at the time of opening and never change.
//   * The list of tracks is filled once, in header order, before any track is used. The clip owns its tracks; a track
//     never outlives its clip.
// Threads: any thread may read the settings and tracks; adoptTracks is called once, before the tracks are used.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include <kelvonclip/kelvon_std.h>

#include "clip/clip_header.h"
#include "foundation/kprotect.h"
#include "vfile/vfileobject.h"

namespace KelvonClip {

class Track;

struct ClipSettings {
    VideoFrequency frequency{};
    VideoResolution resolution{};
    std::uint32_t trim_start = 0, trim_end = 0;  // fields
    bool striped = false, tc0_striped = false, timecode_track = false;
    bool drop_frame = false;
    std::uint32_t timecode = 0;  // fields

    // The settings in a clip's header. The header of a child clip has timecode settings only.
    static ClipSettings of(MetaObject const& meta);
    static ClipSettings ofChild(MetaObject const& meta);
};

class Clip {
  public:
    // `data_area`: the part of the clip file after the header, where a track with "ThisFile" has its data.
    Clip(ClipSettings const& clip_settings, std::shared_ptr<VFileObject> data_area, bool opened_read_only);
    ~Clip();
    Clip(Clip const&) = delete;
    Clip& operator=(Clip const&) = delete;

    ClipSettings const& settings() const { return header_settings; }
    VideoStandard videoStandard() const;
    bool readOnly() const { return read_only; }
    std::shared_ptr<VFileObject> const& trackDataArea() const { return data_area; }

    std::vector<std::unique_ptr<Track>> const& tracks() const { return track_list; }
    void adoptTracks(std::vector<std::unique_ptr<Track>> opened);

    // The end, in fields, of the last unit that was written to any track since the clip was opened.
    std::uint32_t writtenLength() const;
    // Called by a track for every unit that it writes: raises the track's written length and the clip's.
    void raiseWrittenLength(std::uint32_t& track_written_length, std::uint32_t end_in_fields);

  private:
    ClipSettings header_settings;
    bool read_only;
    std::shared_ptr<VFileObject> data_area;
    mutable KProtect<std::uint32_t> written_length;
    std::vector<std::unique_ptr<Track>> track_list;
};

}  // namespace KelvonClip
