#include "label_list.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <span>

#include <fmt/format.h>

#include "command.h"
#include "failure.h"
#include "labels.h"

namespace tool {

using namespace KelvonClip;

namespace {

// Calls `on(line)` for every line without its end. Throws Failure for a line that is too long.
template <class On>
void eachLine(std::string const& path, On&& on) {
    constexpr std::size_t MOST = 80;
    ByteSource const source = openBytes(path);
    std::array<std::byte, 4096> bytes{};
    std::string line;
    while (std::size_t const got = source(bytes)) {
        for (std::byte const byte : std::span(bytes).first(got)) {
            auto const c = static_cast<char>(byte);
            if (c == '\n') {
                on(line);
                line.clear();
            } else if (c != '\r') {
                line += c;
            }
            if (line.size() > MOST) throw Failure(FAILED, {path}, "this is no list of labels: a line is too long");
        }
    }
    if (!line.empty()) on(line);
}

}  // namespace

LabelList::LabelList(KTimecode const& first) : frequency(first.get_frequency()) {
    labels.push_back({first.get_nfields(), first.get_df()});
}

LabelList::LabelList(std::string const& path, VideoFrequency rate, bool drop)
    : name(path), frequency(rate), fields_per_label(RoughFieldsPerSecond(rate) > 30 ? 2 : 1) {
    std::uint64_t const most = timecode_fields_per_day(frequency, DropframeFlag::ndf);
    eachLine(path, [&](std::string const& line) {
        if (labels.size() == most) throw Failure(FAILED, {path}, "there are more labels than a day has");
        try {
            add(line, drop);
        } catch (Failure const& failure) {
            throw Failure(FAILED, {path}, fmt::format("line {}: {}", labels.size() + 1, failure.reason));
        }
    });
    if (labels.empty()) throw Failure(FAILED, {path}, "there are no labels in it");
}

void LabelList::add(std::string const& line, bool drop) {
    std::size_t const space = line.find(' ');
    bool const of_unit = space != std::string::npos;
    if (labels.empty() && of_unit) fields_per_label = 1;
    if (of_unit != numbered && !labels.empty()) throw usage("either all lines begin with the number of a unit or none");
    numbered = of_unit;
    std::string const label = line.substr(of_unit ? space + 1 : 0);
    if (label.empty() || label == "-") return labels.push_back({});
    KTimecode const timecode = parseTimecode(label, frequency, drop);
    labels.push_back({timecode.get24().get_nfields(), timecode.get_df()});
}

void LabelList::requireEnd(std::uint64_t units) const {
    if ((labels.size() - 1) * fields_per_label < units) return;
    throw Failure(
        FAILED, {name},
        fmt::format("there are labels for {} fields, and the clip has {}", labels.size() * fields_per_label, units));
}

KTimecode LabelList::at(std::uint64_t unit) const {
    std::uint64_t const index = std::min<std::uint64_t>(unit / fields_per_label, labels.size() - 1);
    Label const& label = labels[static_cast<std::size_t>(index)];
    if (label.flag == DropframeFlag::none) return {};
    KTimecode timecode(frequency, label.flag, label.fields);
    std::uint64_t const on = unit - index * fields_per_label;
    timecode.add24(static_cast<unsigned>(on % timecode.get_fields_per_day()));
    return timecode;
}

}  // namespace tool
