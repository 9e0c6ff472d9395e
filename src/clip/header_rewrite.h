// Overwriting a clip header in place, so that at every moment the file holds the old header or the new one.
//
// A disk writes single sectors whole, but a power failure may leave any of the sectors of a longer write undone. So the
// header is never overwritten where a reader finds it. A reader takes the first root element in the header area and
// skips what stands before and behind it (docs/format.md, "What a reader tolerates"):
//
//   area:  | old text ...       |                     |    start
//          | old text ...       | new text ...        |    1. behind the old one, where nobody looks
//          | (no opening tag)   | new text ...        |    2. one byte: the old opening tag is gone
//          | spaces             | new text ...        |    3.
//          | (no tag) new text  | new text ...        |    4.
//          | new text ...       | new text ...        |    5. one byte: the new opening tag is there
//          | new text ...       | spaces              |    6.
//
// Each step is flushed before the next one. Only steps 2 and 5 change what a reader finds, and they change one byte.
//
// A text of more than half the area has no second place. It is overwritten in one transfer of the whole area: a killed
// process leaves the old or the new one, but a power failure in this instant may leave a mixture.
#pragma once

#include <memory>
#include <vector>

#include "clip/clip_header.h"
#include "foundation/kstring.h"
#include "vfile/vfileobject.h"

namespace KelvonClip {

// The contents of the area after each step, the last one being `wanted`. One step where a second text has no room.
std::vector<std::unique_ptr<ClipHeaderArea>> planHeaderRewrite(ClipHeaderArea const& current,
                                                               ClipHeaderArea const& wanted);

// Replaces the header of a clip file, durably. Empty on success. After a failure the file has the old or the new
// header. Waits alertably. The caller makes sure that nobody else writes the header.
KString rewriteHeader(VFileObject& file, ClipHeaderArea const& wanted);

}  // namespace KelvonClip
