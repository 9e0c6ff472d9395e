// Timecode labels as people write them, and time by the clock.
//
// The library counts two fields to every label, at every rate (docs/standards.md, "Timecode"). The label that people
// know (SMPTE ST 12-1) counts frames: at 50Hz and above a frame is two fields, below it is one. Here it is called the
// SMPTE label: "10:00:00:24", with a semicolon before the frames at drop-frame; ".2" behind it means the second field.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <kelvonclip/kelvon_std.h>
#include <kelvonclip/kelvon_timecode.h>

#include "json.h"

namespace tool {

double secondsOf(std::uint64_t fields, KelvonClip::VideoFrequency frequency);

std::string smpteLabel(KelvonClip::KTimecode const& timecode);
std::string libraryLabel(KelvonClip::KTimecode const& timecode);

// {"fields", "drop_frame", "library", "smpte"}
Json timecodeJson(KelvonClip::KTimecode const& timecode);

// From an SMPTE label, or from a plain number of fields. Throws a usage failure for a label that does not exist at the
// rate. `drop`: whether a number, or a label without a semicolon, counts drop-frame.
KelvonClip::KTimecode parseTimecode(std::string const& text, KelvonClip::VideoFrequency frequency, bool drop);

// A rate or a standard by its text: "25Hz", "1080i 50Hz". Throws a usage failure.
KelvonClip::VideoFrequency parseFrequency(std::string const& text);
KelvonClip::VideoStandard parseStandard(std::string const& text);

}  // namespace tool
