// What the checker and the salvage have found, as JSON and as lines.
#pragma once

#include <string>

#include "clip_view.h"
#include "console.h"
#include "inspect/finding.h"
#include "json.h"

namespace tool {

Json findingsJson(KelvonClip::inspect::Findings const& findings);

// "damage  track 1, unit 17: Audio blocks ... (3 blocks, at byte 4096)"
std::string findingLine(Json const& finding, Console const& console);

// Notes that a clip cannot be shown as a whole, if its structure is damaged.
void noteDamage(ClipView const& clip, Console& console);

}  // namespace tool
