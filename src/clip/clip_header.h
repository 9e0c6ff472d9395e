// The clip header: the XML text in the first 32768 bytes of a clip file, which describes the clip and where the data of
// its tracks is stored. Byte table, elements and tolerated damage: docs/format.md, "Clip header".
//
// Threads: any; no shared state. The caller makes sure that a header is not written while it is read or written.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include <kelvonclip/kelvon_std.h>

#include "foundation/kstring.h"
#include "platform/host_file.h"
#include "vfile/vfileobject.h"
#include "xml/xml_parse.h"

namespace KelvonClip {

constexpr std::uint32_t CLIP_HEADER_SIZE = 32768;
constexpr char const* CLIP_HEADER_ROOT = "KelvonClipMeta1";

// The header area as stored in the file; aligned, so that it is transferred without a copy.
struct alignas(platform::DIRECT_ALIGNMENT) ClipHeaderArea {
    std::array<char, CLIP_HEADER_SIZE> bytes;
};

// The contents of a header. Its nodes point into `tree`, so a MetaObject is neither copied nor moved.
struct MetaObject {
    // An entry of the header's "Meta" element, which holds arbitrary names and values.
    struct Entry {
        KString name, value;
    };

    bool valid = false;  // the header is a complete clip header
    XmlTree tree;
    std::vector<XmlNode> track_meta;  // the TrackMeta elements, in file order
    VideoFrequency frequency = VideoFrequency::none;
    VideoResolution resolution = VideoResolution::none;
    std::uint32_t trim_start = 0, trim_end = 0;  // fields
    bool striped = false, tc0_striped = false, timecode_track = false;
    bool drop_frame = false;
    bool timecode_valid = false;
    std::uint32_t timecode = 0;  // of the first frame, in fields
    // Seconds since 1970-01-01 00:00:00 UTC; 0 if missing.
    std::uint64_t last_loaded = 0, last_unloaded = 0, last_played = 0, last_meta_edit = 0, last_content_edit = 0;
    KString project, title, creator;
    std::vector<Entry> meta;
    bool child_clip = false;  // the header of a child clip: it has only times, texts and timecode

    MetaObject() = default;
    MetaObject(MetaObject const&) = delete;
    MetaObject& operator=(MetaObject const&) = delete;
};

// On success: no error and a valid object. Errors: "XML header is a child clip header", with an object that is not
// valid; "XML parsing error in clip header" and the file's own messages, without an object.
struct HeaderRead {
    KString error;
    std::shared_ptr<MetaObject> meta;
};

// Reads the header of a clip file. Waits alertably.
HeaderRead readClipHeader(VFileObject& file);
// The same for bytes in memory.
HeaderRead parseClipHeader(std::string_view area);

// The contents of a new clip's header. `track_meta`: the TrackMeta elements in the order of the tracks.
struct HeaderContent {
    VideoStandard standard = VideoStandard::none;
    KString uuid;  // text form
    std::uint64_t content_edit_time = 0, meta_edit_time = 0;
    std::vector<XmlElement> track_meta;
    // The timecode source is the first of these that is set; if none is, the clip is zero-based.
    bool striped = false, tc0_striped = false, timecode_track = false;
    bool drop_frame = false;
    std::uint32_t timecode = 0;  // of the first frame, in fields; written for the two striped sources only
};

XmlElement buildHeaderTree(HeaderContent const& content);

// The header area, or "Error creating header text" if no layout of the tree fits into it.
struct HeaderText {
    KString error;
    std::unique_ptr<ClipHeaderArea> area;
};
HeaderText writeHeaderText(XmlElement const& root);

}  // namespace KelvonClip
