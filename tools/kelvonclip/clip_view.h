// A clip opened for looking: read once by the checker's layers, which trust no number of the file, with the library's
// own tracks on top of them.
//
// Threads: one user at a time; different views, any threads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "clip/clip.h"
#include "clip/clip_header.h"
#include "clip/track.h"
#include "inspect/clip_layers.h"
#include "vfile/vfileobject.h"

namespace tool {

// Opens a file for reading. Throws Failure with the host's reason.
// `on_read` is called before each read with its bytes; what it throws ends the work that reads.
using OnRead = std::function<void(std::uint64_t bytes)>;
std::shared_ptr<KelvonClip::VFileObject> openForReading(std::string const& path, OnRead on_read = {});

struct TrackView {
    std::string format_name;
    KelvonClip::TrackFormat format;
    std::shared_ptr<KelvonClip::inspect::Layer const> layer;  // its units; null if the stack cannot be built
    std::unique_ptr<KelvonClip::Track> track;                 // with the trims taken off; null like `layer`
};

class ClipView {
  public:
    // Throws Failure: FAILED if the file does not open, DAMAGED if it has no clip header. A child clip has no tracks.
    explicit ClipView(std::string clip_path, OnRead on_read = {});

    std::string const& path() const { return file_path; }
    std::uint64_t fileBytes() const { return clip_file->length(); }
    KelvonClip::VFileObject& file() const { return *clip_file; }
    KelvonClip::MetaObject const& header() const { return *meta; }
    KelvonClip::VideoStandard standard() const { return video_standard; }
    std::vector<TrackView> const& tracks() const { return track_views; }
    KelvonClip::inspect::Findings const& findings() const { return found; }

    // The longest track, in whole frames, as clip_get_length counts.
    std::uint64_t lengthInFields() const;
    // The track with this number, which can be read. Throws Failure.
    TrackView const& readable(std::uint64_t number) const;
    // Reads a unit into memory. Throws Failure that names it.
    // `into`: bytes of the stored unit, best at a multiple of 4096. Threads: several units at once.
    void readUnit(std::uint64_t track, std::uint32_t unit, std::byte* into) const;

  private:
    std::string const file_path;
    std::shared_ptr<KelvonClip::VFileObject> clip_file;
    KelvonClip::inspect::Findings found;
    std::shared_ptr<KelvonClip::MetaObject const> meta;
    KelvonClip::VideoStandard video_standard{};
    std::unique_ptr<KelvonClip::Clip> clip;  // the parent of the tracks
    std::vector<TrackView> track_views;
};

// Bytes that a track occupies in the file, its container's header and units behind its length included.
std::uint64_t storedBytes(KelvonClip::inspect::Layer const& units);

char const* categoryText(KelvonClip::TrackCategory category);  // "video"; "unknown"
// "avc", "dv", "j2k", "hemlock", "timecode"; empty if unknown
char const* codingText(KelvonClip::TrackFormat const& format);

}  // namespace tool
