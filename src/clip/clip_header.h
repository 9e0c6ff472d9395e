// The clip header: the XML text in the first 32768 bytes of a clip file that says what the clip is and where the data of
// its tracks lies. Byte table, elements and what is tolerated: docs/format.md, "Clip header".
//
// Reading and writing touch no shared state. Threads: any; one call at a time on one file's header is the caller's care.
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

// The header area as it lies in the file; aligned, so that it is transferred without a copy.
struct alignas(platform::DIRECT_ALIGNMENT) ClipHeaderArea {
    std::array<char, CLIP_HEADER_SIZE> bytes;
};

// What a header says. Its track nodes lie in its tree, so it is neither copied nor moved.
struct MetaObject {
    // An entry of the header's free list of names and values.
    struct Entry {
        KString name, value;
    };

    bool valid = false;  // the header is a complete clip header
    XmlElement root = XmlElement::none();
    std::vector<XmlElement const*> track_meta;  // the TrackMeta nodes of `root`, in file order
    VideoFrequency frequency = VideoFrequency::none;
    VideoResolution resolution = VideoResolution::none;
    std::uint32_t trim_start = 0, trim_end = 0;  // fields
    bool striped = false, tc0_striped = false, timecode_track = false;
    bool drop_frame = false;
    bool timecode_valid = false;
    std::uint32_t timecode = 0;  // of the first frame, in fields
    // Seconds since 1970-01-01 00:00:00 UTC; 0 when the header does not say.
    std::uint64_t last_loaded = 0, last_unloaded = 0, last_played = 0, last_meta_edit = 0, last_content_edit = 0;
    KString project, title, creator;
    std::vector<Entry> meta;
    bool child_clip = false;  // the header is that of a child clip: times, texts and timecode are all it has

    MetaObject() = default;
    MetaObject(MetaObject const&) = delete;
    MetaObject& operator=(MetaObject const&) = delete;
};

// Success: no error and a valid object. The one error that comes with an object, which is not valid, is "XML header is
// a child clip header"; the others are "XML parsing error in clip header" and the file's own texts.
struct HeaderRead {
    KString error;
    std::shared_ptr<MetaObject> meta;
};

// Reads bytes 0 to 32767 of a clip file. Waits alertably.
HeaderRead readClipHeader(VFileObject& file);
// The same for bytes that are in memory already.
HeaderRead parseClipHeader(std::string_view area);

// What a new clip's header is made from. `track_meta` are the TrackMeta elements, in the order of the tracks.
struct HeaderContent {
    VideoStandard standard = VideoStandard::none;
    KString uuid;  // text form
    std::uint64_t content_edit_time = 0, meta_edit_time = 0;
    std::vector<XmlElement> track_meta;
    // The first of these that is set is the timecode source; with none the clip is zero-based.
    bool striped = false, tc0_striped = false, timecode_track = false;
    bool drop_frame = false;
    std::uint32_t timecode = 0;  // of the first frame, in fields; written for the two striped sources only
};

XmlElement buildHeaderTree(HeaderContent const& content);

// The area to write at byte 0 of the clip file, or "Error creating header text" when no layout of the tree fits.
struct HeaderText {
    KString error;
    std::unique_ptr<ClipHeaderArea> area;
};
HeaderText writeHeaderText(XmlElement const& root);

}  // namespace KelvonClip
