// Changing the header of a clip that is open for writing.
//
// The header as it is now belongs to the clip's entry. What a clip was opened with, its tracks and their trims above
// all, stays as it is until the clip is opened again.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <variant>

#include "clip/clip_header.h"
#include "foundation/kstring.h"

namespace KelvonClip {

// Why the header cannot be set, or empty: `unknown` for an unknown clip; "Clip was opened in read-only mode"; "Write
// failed" in a forked child.
KString checkHeaderCanBeSet(std::uint32_t clip, char const* unknown);

// One change of the header.
struct SetHeaderText {
    char const* element;  // a child of the root element
    KString text;         // empty: the element goes
};
struct SetHeaderMeta {
    KString name;                  // of an entry of the "Meta" element
    std::optional<KString> value;  // none: the entry goes
};
struct SetHeaderTrims {
    std::uint32_t start, end;  // fields
};
using HeaderEdit = std::variant<SetHeaderText, SetHeaderMeta, SetHeaderTrims>;

// The header area after the edits, with the time of now as that of the last change. Errors as those of editHeader that
// do not concern the file.
HeaderText editHeaderText(ClipHeaderArea const& header, bool child_clip, std::span<HeaderEdit const> edits);

enum class HeaderEditing { write, only_try };

struct EditedHeader {
    KString error;                           // empty on success
    std::shared_ptr<MetaObject const> meta;  // what the header says then; null after an error
};

// Makes all edits, or none: replaces the header in the file and then in memory. The errors: `unknown` for an unknown
// clip; "Clip was opened in read-only mode"; "Invalid meta name"; "XML header is a child clip header" for trims; "Error
// creating header text" if the new header does not fit; the file's messages. After an error nothing has changed in
// memory, and the file has the old or the new header. With `only_try` nothing is written.
EditedHeader editHeader(std::uint32_t clip, char const* unknown, std::span<HeaderEdit const> edits,
                        HeaderEditing how = HeaderEditing::write);

}  // namespace KelvonClip
