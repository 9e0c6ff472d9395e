// The clip header reader and writer with arbitrary header areas.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "clip/clip_header.h"
#include "require.h"

namespace {

using namespace KelvonClip;
using fuzz::require;

bool isStated(HeaderRead const& read) {
    if (read.error.empty()) return read.meta && read.meta->valid && !read.meta->child_clip;
    if (read.error == "XML header is a child clip header")
        return read.meta && !read.meta->valid && read.meta->child_clip;
    return read.error == "XML parsing error in clip header" && !read.meta;
}

void requireEqual(MetaObject const& left, MetaObject const& right) {
    require(left.valid == right.valid && left.child_clip == right.child_clip, "same kind of header");
    require(left.frequency == right.frequency && left.resolution == right.resolution, "same standard");
    require(left.track_meta.size() == right.track_meta.size(), "same tracks");
    require(left.trim_start == right.trim_start && left.trim_end == right.trim_end, "same trims");
    require(left.striped == right.striped && left.tc0_striped == right.tc0_striped &&
                left.timecode_track == right.timecode_track && left.drop_frame == right.drop_frame &&
                left.timecode_valid == right.timecode_valid && left.timecode == right.timecode,
            "same timecode");
    require(left.last_content_edit == right.last_content_edit && left.last_played == right.last_played, "same times");
    require(left.title == right.title && left.meta.size() == right.meta.size(), "same texts");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    HeaderRead const read = parseClipHeader({reinterpret_cast<char const*>(data), size});
    require(isStated(read), "one of the stated results");
    if (!read.meta) return 0;
    HeaderText const text = writeHeaderText(toElement(read.meta->tree.root()));
    if (!text.area) return 0;  // escaping and closing tags can make the text too long
    HeaderRead const again = parseClipHeader({text.area->bytes.data(), text.area->bytes.size()});
    require(isStated(again) && again.meta, "a written header is read");
    requireEqual(*read.meta, *again.meta);
    return 0;
}
