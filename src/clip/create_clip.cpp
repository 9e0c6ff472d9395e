#include "clip/create_clip.h"

#include <array>
#include <optional>
#include <string_view>
#include <utility>

#include "clip/info_j2k.h"
#include "clip/track_format.h"
#include "clip/units_per_record.h"
#include "foundation/kassert.h"
#include "foundation/kid.h"
#include "platform/host.h"
#include "vfile/vfile_builder.h"
#include "vfile/vfilegrow.h"
#include "vfile/vfileoffset.h"
#include "vfile/vfilesparse2.h"

namespace KelvonClip {

namespace {

// An upper bound of the number of tracks: more would not fit into a header even without contents.
constexpr std::string_view SHORTEST_TRACK_META = "<TrackMeta><TrackType></TrackType><VFile></VFile></TrackMeta>";
constexpr std::uint64_t MAX_TRACK_COUNT = CLIP_HEADER_SIZE / SHORTEST_TRACK_META.size();

std::uint32_t audioTracks(ClipDescription const& clip) {
    return static_cast<std::int32_t>(clip.audio_track_count) > 0 ? clip.audio_track_count : 0;
}

std::optional<CreationFormat> pictureFormat(ClipDescription const& clip, bool key) {
    switch (clip.video_kind) {
    case TrackVideoType::j2k:
        return j2kForCreation(clip.standard, clip.j2k_mbits, key);
    case TrackVideoType::dv:
        return dvForCreation(clip.standard, key);
    case TrackVideoType::avc:
        if (!kassert(clip.avc_mbits != 0, "kelvon_clip", __LINE__, "avc_class != 0")) return std::nullopt;
        return avcForCreation(clip.standard, clip.avc_mbits, key);
    case TrackVideoType::none:
        break;
    }
    return std::nullopt;
}

// Consecutive tracks of the same format.
struct TrackGroup {
    std::uint32_t count;
    std::optional<CreationFormat> format;
};

// The groups in header order. Formats of empty groups are not looked up.
std::array<TrackGroup, 4> trackGroups(ClipDescription const& clip) {
    auto const group = [](std::uint32_t count, auto&& look_up) {
        return TrackGroup{count, count == 0 ? std::nullopt : std::optional<CreationFormat>(look_up())};
    };
    return {group(clip.video_track_count, [&] { return pictureFormat(clip, false); }),
            group(clip.key_track_count, [&] { return pictureFormat(clip, true); }),
            group(audioTracks(clip), [&] { return audioForCreation(clip.standard, clip.audio_subchannel_count); }),
            group(clip.timecode_track ? 1 : 0, [] { return timecodeForCreation(); })};
}

// <VFile><`kind`>...</`kind`></VFile>. The nested VFile is the last element of `content`, after the kind's numbers.
XmlElement vfileElement(char const* kind, std::vector<XmlElement> content) {
    XmlElement vfile("VFile");
    vfile.add(XmlElement(kind)).children = std::move(content);
    return vfile;
}

template <class... Elements>
std::vector<XmlElement> elements(Elements&&... each) {
    std::vector<XmlElement> list;
    (list.push_back(std::forward<Elements>(each)), ...);
    return list;
}

XmlElement number(char const* name, std::uint64_t value) { return XmlElement(name, KString::fromUnsigned(value)); }

XmlElement trackMeta(PlannedTrack const& track) {
    XmlElement meta("TrackMeta");
    meta.add(XmlElement("TrackType", track.format_name));
    meta.add(describeTrackFile(track));
    return meta;
}

// Creates empty containers for all tracks in the track data area.
KString createContainers(std::shared_ptr<VFileObject> const& area, ClipLayout const& layout) {
    if (KString error = VFileSparse2::create(area, layout.sparse_length); !error.empty()) return error;
    auto const sparse = VFileSparse2::open(area, false);
    if (!sparse.error.empty()) return sparse.error;
    for (auto const& track : layout.tracks) {
        auto const partition = buildPartition(sparse.file, track.start, track.length);
        if (!partition.error.empty()) return partition.error;
        if (KString error = VFileGrow::create(partition.file); !error.empty()) return error;
    }
    return sparse.file->writeBack(Durability::power_loss);
}

}  // namespace

KString checkDescription(ClipDescription const& clip) {
    bool const no_video = clip.video_kind == TrackVideoType::none;
    bool const pictures = clip.video_track_count != 0 || clip.key_track_count != 0;
    if (clip.video_track_count != 0 && no_video) return "Video tracks added but video not configured";
    if (clip.key_track_count != 0 && no_video) return "Key tracks added but video not configured";
    if (audioTracks(clip) > 0 && clip.audio_kind == TrackAudioType::none)
        return "Audio tracks added but audio not configured";
    if (clip.video_kind == TrackVideoType::j2k && pictures && !j2kBitRateValid(clip.standard, clip.j2k_mbits))
        return "Bad rate calculation";
    return {};
}

std::uint64_t partitionLength(VideoStandard standard, std::uint32_t stored_unit_size, std::uint32_t fields_per_unit) {
    return VFileGrow::HEADER_SIZE + std::uint64_t{unitsPerDay(standard, fields_per_unit)} * stored_unit_size;
}

XmlElement describeTrackFile(PlannedTrack const& track) {
    XmlElement vfile = vfileElement("ThisFile", {});
    vfile = vfileElement("Sparse2", elements(std::move(vfile)));
    vfile = vfileElement("Partition",
                         elements(number("Start", track.start), number("Length", track.length), std::move(vfile)));
    return vfileElement("Grow", elements(number("MinLength", track.min_length), std::move(vfile)));
}

ClipLayout layOutClip(ClipDescription const& clip) {
    auto const groups = trackGroups(clip);
    std::uint64_t count = 0;
    for (auto const& group : groups) {
        if (!kassert(group.count == 0 || group.format.has_value(), "kelvon_clip", __LINE__, "ok"))
            return {"Internal error", {}, 0};
        count += group.count;
    }
    if (count > MAX_TRACK_COUNT) return {"Error creating header text", {}, 0};

    ClipLayout layout;
    for (auto const& group : groups)
        for (std::uint32_t n = 0; n < group.count; ++n) {
            auto const& format = *group.format;
            std::uint64_t const length =
                partitionLength(clip.standard, format.stored_unit_size, format.fields_per_unit);
            layout.tracks.push_back(
                {format.name, layout.sparse_length, length, format.stored_unit_size * 2 / format.fields_per_unit});
            layout.sparse_length += length;
        }
    return layout;
}

HeaderText newClipHeader(ClipDescription const& clip, ClipLayout const& layout) {
    KID const id = KID::create();
    if (id.size() == 0) return {"Error creating XML header", nullptr};
    HeaderContent content;
    content.standard = clip.standard;
    content.uuid = id.toText();
    content.content_edit_time = content.meta_edit_time = platform::secondsSince1970();
    for (auto const& track : layout.tracks)
        content.track_meta.push_back(trackMeta(track));
    content.striped = clip.striped;
    content.tc0_striped = clip.tc0_striped;
    content.timecode_track = clip.timecode_track_source;
    content.drop_frame = clip.drop_frame;
    content.timecode = clip.stripe_offset;
    return writeHeaderText(buildHeaderTree(content));
}

KString writeNewClip(std::shared_ptr<VFileObject> const& host, ClipHeaderArea const& header, ClipLayout const& layout) {
    if (KString error = host->writeSync(0, CLIP_HEADER_SIZE, header.bytes.data()); !error.empty()) return error;
    auto const area = VFileOffset::section(host, CLIP_HEADER_SIZE);
    if (!area.error.empty()) return area.error;
    return createContainers(area.file, layout);
}

}  // namespace KelvonClip
