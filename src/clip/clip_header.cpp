// Reads the elements of a clip header into a MetaObject, and writes those of a new clip. XML syntax is in xml_parse.
#include "clip/clip_header.h"

#include <algorithm>
#include <cstddef>
#include <limits>
#include <optional>
#include <string>
#include <utility>

#include "platform/scratch_memory.h"
#include "standard/standard_text.h"
#include "vfile/aligned_buffer.h"
#include "vfile/settled_read.h"

namespace KelvonClip {

namespace {

constexpr char const* PARSING_ERROR = "XML parsing error in clip header";

// The timecode sources, in the order in which the writer chooses them. The reader takes value and drop-frame flag from
// all elements that are present, whatever the source; a later row overrides the value of an earlier one.
struct SourceText {
    char const* name;
    bool MetaObject::*read_flag;
    bool HeaderContent::*written_flag;
    char const* value_element;
    char const* drop_frame_element;
};
constexpr std::array<SourceText, 4> TIMECODE_SOURCES{{
    {"striped", &MetaObject::striped, &HeaderContent::striped, "Striped_TC_Offset", "Striped_TC_DF"},
    // KEEP: the element is called NDF, but "df" in it means drop-frame
    {"tc0striped", &MetaObject::tc0_striped, &HeaderContent::tc0_striped, "RecTCStripe", "RecTCStripeNDF"},
    {"timecodetrack", &MetaObject::timecode_track, &HeaderContent::timecode_track, nullptr, nullptr},
    {"zerobased", nullptr, nullptr, nullptr, nullptr},
}};
constexpr char const* DROP_FRAME = "df";
constexpr char const* NON_DROP_FRAME = "ndf";

struct TimeElement {
    char const* name;
    std::uint64_t MetaObject::*time;
};
constexpr std::array<TimeElement, 5> TIME_ELEMENTS{{
    {"ClipLastContentEdited", &MetaObject::last_content_edit},
    {"ClipLastMetaEdited", &MetaObject::last_meta_edit},
    {"ClipLastLoaded", &MetaObject::last_loaded},
    {"ClipLastUnloaded", &MetaObject::last_unloaded},
    {"ClipLastPlayed", &MetaObject::last_played},
}};

// ---- reading: a missing element has an empty text, which is neither a number nor a name -----------------------------

std::optional<std::uint32_t> number32(XmlNode element) {
    auto const number = element.number();
    if (!number || *number > std::numeric_limits<std::uint32_t>::max()) return std::nullopt;
    return static_cast<std::uint32_t>(*number);
}

void readTimecode(MetaObject& meta) {
    XmlNode const root = meta.tree.root(), source = root.child("TimecodeSource");
    meta.timecode_valid = source.invalid();  // without a source the clip is zero-based
    for (SourceText const& row : TIMECODE_SOURCES) {
        if (!source.invalid() && source.textIs(row.name)) {
            meta.timecode_valid = true;
            if (row.read_flag != nullptr) meta.*row.read_flag = true;
        }
        if (row.value_element == nullptr) continue;
        meta.timecode = number32(root.child(row.value_element)).value_or(meta.timecode);
        if (root.child(row.drop_frame_element).textIs(DROP_FRAME)) meta.drop_frame = true;
    }
}

void readTimesAndTexts(MetaObject& meta) {
    XmlNode const root = meta.tree.root();
    for (TimeElement const& row : TIME_ELEMENTS)
        meta.*row.time = root.child(row.name).number().value_or(0);
    meta.project = root.child("Project").text();
    meta.title = root.child("Title").text();
    meta.creator = root.child("Creator").text();
    for (XmlNode const entry : root.child("Meta").children())
        meta.meta.push_back({KString(entry.name()), entry.child("V").text()});
}

void readClip(MetaObject& meta, XmlNode tracks) {
    XmlNode const root = meta.tree.root();
    for (XmlNode const track : tracks.children())
        if (track.name() == "TrackMeta") meta.track_meta.push_back(track);
    VideoStandard const standard = standardWithText(root.child("VideoStandard").text().toUtf8());
    if (!isValid(standard)) return;
    meta.resolution = toVideoResolution(standard);
    meta.frequency = toVideoFrequency(standard);
    meta.trim_start = number32(root.child("TrimStart")).value_or(0);
    meta.trim_end = number32(root.child("TrimEnd")).value_or(0);
    readTimecode(meta);
    readTimesAndTexts(meta);
    meta.valid = true;
}

void readChildClip(MetaObject& meta) {
    meta.child_clip = true;
    readTimesAndTexts(meta);
    readTimecode(meta);
}

}  // namespace

HeaderRead parseClipHeader(std::string_view area) {
    std::size_t const begin = xmlFind(area, CLIP_HEADER_ROOT);
    if (begin == std::string_view::npos) return {PARSING_ERROR, nullptr};
    auto meta = std::make_shared<MetaObject>();
    if (!meta->tree.parse(area.substr(begin), XmlTree::Nesting::other_names)) return {PARSING_ERROR, nullptr};

    XmlNode const tracks = meta->tree.root().child("TrackMetaVector");
    if (!tracks.invalid())
        readClip(*meta, tracks);
    else if (!meta->tree.root().child("ParentClip").invalid())
        readChildClip(*meta);

    if (meta->valid) return {{}, std::move(meta)};
    if (meta->child_clip) return {u"XML header is a child clip header", std::move(meta)};
    return {PARSING_ERROR, nullptr};
}

HeaderRead readClipHeader(VFileObject& file) {
    platform::ScratchMemory const area(platform::ScratchMemory::Size::small);
    KString error = file.readSync(0, CLIP_HEADER_SIZE, area.data());
    if (!error.empty()) return {std::move(error), nullptr};
    HeaderRead read = parseClipHeader({reinterpret_cast<char const*>(area.data()), CLIP_HEADER_SIZE});
    if (read.meta) return read;
    // Somebody may have been rewriting it, and parts of it were read before and others after.
    AlignedBuffer settled(CLIP_HEADER_SIZE);
    error = readSettled(file, 0, settled);
    if (!error.empty()) return {std::move(error), nullptr};
    return parseClipHeader({reinterpret_cast<char const*>(settled.data()), settled.size()});
}

// ---- writing --------------------------------------------------------------------------------------------------------

XmlElement buildHeaderTree(HeaderContent const& content) {
    XmlElement root(CLIP_HEADER_ROOT);
    root.add(XmlElement("VideoStandard", textOf(content.standard)));
    root.add(XmlElement("UUID", content.uuid));
    root.add(XmlElement("ClipLastContentEdited", KString::fromUnsigned(content.content_edit_time)));
    root.add(XmlElement("ClipLastMetaEdited", KString::fromUnsigned(content.meta_edit_time)));
    root.add(XmlElement("TrackMetaVector")).children = content.track_meta;

    SourceText const& source =
        *std::find_if(TIMECODE_SOURCES.begin(), TIMECODE_SOURCES.end(),
                      [&](SourceText const& row) { return row.written_flag == nullptr || content.*row.written_flag; });
    root.add(XmlElement("TimecodeSource", source.name));
    if (source.value_element != nullptr) {
        root.add(XmlElement(source.value_element, KString::fromUnsigned(content.timecode)));
        root.add(XmlElement(source.drop_frame_element, content.drop_frame ? DROP_FRAME : NON_DROP_FRAME));
    }
    return root;
}

HeaderText writeHeaderText(XmlElement const& root) {
    std::optional<std::string> fitting;
    for (XmlLayout layout : {XmlLayout::indented, XmlLayout::lines, XmlLayout::compact}) {
        std::string text = xmlWrite(root, layout).toUtf8();
        if (text.size() <= CLIP_HEADER_SIZE) fitting = std::move(text);
    }
    if (!fitting) return {"Error creating header text", nullptr};
    auto area = std::make_unique_for_overwrite<ClipHeaderArea>();
    auto const rest = std::copy(fitting->begin(), fitting->end(), area->bytes.begin());
    std::fill(rest, area->bytes.end(), ' ');
    return {{}, std::move(area)};
}

}  // namespace KelvonClip
