#include "clip_view.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <utility>

#include "failure.h"
#include "inspect/budget.h"
#include "inspect/finding.h"
#include "reason.h"
#include "text.h"
#include "vfile/vfilefile.h"
#include "vfile/vfilehosted.h"
#include "vfile/vfilelimit.h"
#include "vfile/vfileoffset.h"

namespace tool {

using namespace KelvonClip;

namespace {

class WatchedFile : public VFileHosted {
  public:
    WatchedFile(std::shared_ptr<VFileObject> file, OnRead call)
        : VFileHosted(std::move(file)), on_read(std::move(call)) {}
    void read(std::uint64_t position, std::uint32_t count, void* buffer,
              std::shared_ptr<CIO::CIOObject> done) override {
        on_read(count);
        host->read(position, count, buffer, std::move(done));
    }

  private:
    OnRead const on_read;
};

}  // namespace

std::shared_ptr<VFileObject> openForReading(std::string const& path, OnRead on_read) {
    auto const opened = VFileFile::open(kstring(path), true);
    if (!opened.file) throw Failure(FAILED, {path}, reasonText(opened.error));
    if (!on_read) return opened.file;
    return std::make_shared<WatchedFile>(opened.file, std::move(on_read));
}

ClipView::ClipView(std::string clip_path, OnRead on_read)
    : file_path(std::move(clip_path)), clip_file(openForReading(file_path, std::move(on_read))),
      found(inspect::Limits{}.findings) {
    inspect::Budget budget{inspect::Limits{}};
    inspect::ClipLayers layers = inspect::readLayers(clip_file, kstring(file_path), budget, found);
    meta = layers.header;
    if (!meta) {  // a child clip, or none
        HeaderRead read = readClipHeader(*clip_file);
        if (!read.meta) throw Failure(DAMAGED, {file_path}, reasonText(read.error));
        meta = std::move(read.meta);
    }
    video_standard = layers.standard;
    auto const area = std::make_shared<VFileOffset>(clip_file, CLIP_HEADER_SIZE);
    clip =
        std::make_unique<Clip>(meta->child_clip ? ClipSettings::ofChild(*meta) : ClipSettings::of(*meta), area, true);
    for (inspect::TrackLayers& track : layers.tracks) {
        TrackView view{track.format_name.toUtf8(), track.format, std::move(track.units), nullptr};
        if (view.layer) {
            auto const units = std::make_shared<VFileLimit>(view.layer->file, view.layer->length);
            view.track = std::make_unique<Track>(*clip, view.format, units);
        }
        track_views.push_back(std::move(view));
    }
}

std::uint64_t ClipView::lengthInFields() const {
    std::uint32_t longest = 0;
    for (TrackView const& view : track_views)
        if (view.track) longest = std::max(longest, view.track->lengthInFields());
    return longest & ~1u;
}

TrackView const& ClipView::readable(std::uint64_t number) const {
    if (number >= track_views.size()) throw Failure(USAGE, {file_path, number}, "there is no such track");
    TrackView const& view = track_views[static_cast<std::size_t>(number)];
    if (!view.track) throw Failure(DAMAGED, {file_path, number}, "the track cannot be opened");
    if (!view.format.valid)
        throw Failure(DAMAGED, {file_path, number}, "the format " + printable(view.format_name) + " is unknown");
    return view;
}

void ClipView::readUnit(std::uint64_t track, std::uint32_t unit, std::byte* into) const {
    KString const error = readable(track).track->readUnit(unit, into);
    if (!error.empty()) throw Failure(FAILED, {file_path, track, unit}, reasonText(error));
}

std::uint64_t storedBytes(inspect::Layer const& units) {
    // A grow container hides what is behind its length.
    inspect::Layer const& whole = units.kind == VFileKind::grow ? *units.below : units;
    std::uint64_t stored = 0;
    for (std::uint64_t position = 0; position < whole.length;) {
        auto const reach = whole.reach(position, whole.length - position);
        if (reach.stored) stored += reach.length;
        position += std::max<std::uint64_t>(reach.length, 1);
    }
    return stored;
}

char const* categoryText(TrackCategory category) {
    constexpr std::array TEXTS = {"unknown", "video", "key", "audio", "timecode"};
    return TEXTS.at(static_cast<std::size_t>(category));
}

char const* codingText(TrackFormat const& format) {
    constexpr std::array PICTURES = {"", "j2k", "dv", "avc"};
    switch (format.category) {
    case TrackCategory::video:
    case TrackCategory::key:
        return PICTURES.at(static_cast<std::size_t>(format.video_type));
    case TrackCategory::audio:
        return "hemlock";
    case TrackCategory::timecode:
        return "timecode";
    default:
        return "";
    }
}

}  // namespace tool
