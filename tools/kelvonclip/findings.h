// What the checker and the salvage have found, as JSON and as lines, and what it means for the clip.
#pragma once

#include <string>
#include <string_view>

#include "clip_view.h"
#include "command.h"
#include "console.h"
#include "inspect/check.h"
#include "inspect/finding.h"
#include "json.h"

namespace tool {

// How much of a clip is looked at; without an option its marks.
struct CheckLevel {
    KelvonClip::inspect::Level level;
    std::string_view option, name;
};
// Throws a usage failure if the options exclude each other.
CheckLevel const& checkLevel(Arguments const& arguments);

struct Verdict {
    int code;          // of the program
    char const* text;  // "fine", "unfinished", "damaged"
};
Verdict verdictOf(KelvonClip::inspect::Findings const& findings);

// The code for commands that go on only with a whole structure: a header that lacks an element, and units that were
// never written, damage nothing.
int conditionOf(KelvonClip::inspect::Findings const& findings);

Json findingsJson(KelvonClip::inspect::Findings const& findings);

// "damage  track 1, unit 17: Audio blocks ... (3 blocks, at byte 4096)"
std::string findingLine(Json const& finding, Console const& console);

// Notes that a clip cannot be shown as a whole, if its structure is damaged.
void noteDamage(ClipView const& clip, Console& console);

}  // namespace tool
