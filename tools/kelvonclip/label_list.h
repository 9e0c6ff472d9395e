// The timecode of every unit of a new clip: it counts on from a start, or a list says it label by label.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <kelvonclip/kelvon_std.h>
#include <kelvonclip/kelvon_timecode.h>

#include "byte_source.h"

namespace tool {

class LabelList {
  public:
    // Counts on from `first`.
    explicit LabelList(KelvonClip::KTimecode const& first);
    // From a text: a line for each label, which covers two fields at rates above 30Hz; an empty line: no timecode. Or a
    // line for each unit, as extract writes them: its number, and its label or "-". Behind its end the last label
    // counts on. `drop`: as for parseTimecode. Throws Failure that names file and line.
    LabelList(std::string const& path, KelvonClip::VideoFrequency frequency, bool drop);

    // Undefined where there is none.
    KelvonClip::KTimecode at(std::uint64_t unit) const;
    // Throws Failure if there are labels for more units.
    void requireEnd(std::uint64_t units) const;

  private:
    void add(std::string const& line, bool drop);

    std::string name;  // of the text
    KelvonClip::VideoFrequency frequency;
    std::uint32_t fields_per_label = 1;
    bool numbered = false;
    struct Label {
        std::uint32_t fields = 0;
        KelvonClip::DropframeFlag flag = KelvonClip::DropframeFlag::none;  // none: no timecode
    };
    std::vector<Label> labels;
};

}  // namespace tool
