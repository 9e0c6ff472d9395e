// Changing the header of a clip that is open for writing.
//
// The header as it is now belongs to the clip's entry. What a clip was opened with, its tracks and their trims above
// all, stays as it is until the clip is opened again.
#pragma once

#include <cstdint>

#include "foundation/kstring.h"

namespace KelvonClip {

// Why the header cannot be set, or empty: `unknown` for an unknown clip; "Clip was opened in read-only mode"; "Write
// failed" in a forked child.
KString checkHeaderCanBeSet(std::uint32_t clip, char const* unknown);

// Each replaces the header in the file and then in memory. Empty on success; `unknown` for an unknown clip; "Clip was
// opened in read-only mode"; "Error creating header text" if the new header does not fit; the file's messages. After a
// message nothing has changed in memory, and the file has the old or the new header.

// Sets the text of a child of the root element. An empty text removes it.
KString setHeaderText(std::uint32_t clip, char const* unknown, char const* element, KString const& text);
// Sets an entry of the header's "Meta" element; with `remove` the entry goes. Also "Invalid meta name".
KString setHeaderMeta(std::uint32_t clip, char const* unknown, KString const& name, KString const& value, bool remove);
// Sets the trims, in fields. Also "XML header is a child clip header".
KString setHeaderTrims(std::uint32_t clip, char const* unknown, std::uint32_t start, std::uint32_t end);

}  // namespace KelvonClip
