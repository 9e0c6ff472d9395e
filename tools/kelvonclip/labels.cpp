#include "labels.h"

#include <charconv>
#include <system_error>
#include <vector>

#include <fmt/format.h>

#include "failure.h"
#include "text.h"

namespace tool {

using namespace KelvonClip;

namespace {

// How SMPTE labels count at a rate. Two labels are dropped in each minute but every tenth.
struct Labels {
    std::uint32_t fields_per_frame, frames_per_second;
    static constexpr std::uint64_t DROPPED = 2;

    std::uint64_t minute() const { return std::uint64_t{frames_per_second} * 60; }
    std::uint64_t tenMinutesDropped() const { return minute() * 10 - 9 * DROPPED; }
};

Labels labelsOf(VideoFrequency frequency) {
    std::uint32_t const rough = RoughFieldsPerSecond(frequency);
    return rough > 30 ? Labels{2, rough / 2} : Labels{1, rough};
}

// The number that the label of a frame shows, of all labels from midnight on, the dropped ones counted.
std::uint64_t shownFrame(Labels const& labels, bool drop, std::uint64_t frame) {
    if (!drop) return frame;
    std::uint64_t const tens = frame / labels.tenMinutesDropped(), rest = frame % labels.tenMinutesDropped();
    std::uint64_t const minutes = rest < labels.minute() ? 0 : 1 + (rest - labels.minute()) / (labels.minute() - 2);
    return frame + Labels::DROPPED * (9 * tens + minutes);
}

}  // namespace

double secondsOf(std::uint64_t fields, VideoFrequency frequency) {
    std::uint32_t numerator = 0, denominator = 0;
    return toRatio(frequency, &numerator, &denominator) ? static_cast<double>(fields) * denominator / numerator : 0;
}

std::string smpteLabel(KTimecode const& timecode) {
    if (!timecode.is_defined()) return {};
    Labels const labels = labelsOf(timecode.get_frequency());
    bool const drop = timecode.is_df();
    std::uint64_t const fields = timecode.get_nfields();
    std::uint64_t const shown = shownFrame(labels, drop, fields / labels.fields_per_frame);
    std::uint64_t const seconds = shown / labels.frames_per_second;
    bool const second_field = labels.fields_per_frame == 2 && fields % 2 == 1;
    return fmt::format("{:02}:{:02}:{:02}{}{:02}{}", seconds / 3600, seconds / 60 % 60, seconds % 60, drop ? ';' : ':',
                       shown % labels.frames_per_second, second_field ? ".2" : "");
}

std::string libraryLabel(KTimecode const& timecode) {
    constexpr unsigned FROM_HOURS = 4;
    return timecode.is_defined() ? utf8(timecode.toString(FROM_HOURS).c_str()) : std::string();
}

Json timecodeJson(KTimecode const& timecode) {
    return {{"fields", timecode.get_nfields()},
            {"drop_frame", timecode.is_df()},
            {"library", libraryLabel(timecode)},
            {"smpte", smpteLabel(timecode)}};
}

KTimecode parseTimecode(std::string const& text, VideoFrequency frequency, bool drop) {
    auto const wrong = [&](std::string const& why) { return usage(fmt::format("{}: {}", text, why)); };
    std::vector<std::uint32_t> numbers;
    std::string separators;
    char const* const end = text.data() + text.size();
    for (char const* at = text.data();;) {
        std::uint32_t number = 0;
        auto const [after, error] = std::from_chars(at, end, number);
        if (error != std::errc()) throw wrong("this is neither a label such as 10:00:00:00 nor a number of fields");
        numbers.push_back(number);
        if (after == end) break;
        separators += *after;
        at = after + 1;
    }
    if (drop && !hasDropframe(frequency)) throw wrong("there is no drop-frame at this rate");
    if (separators.empty()) return {frequency, drop ? DropframeFlag::df : DropframeFlag::ndf, numbers[0]};

    bool const second_field = separators.ends_with('.') && numbers.back() == 2 && separators.size() == 4;
    if (second_field) separators.pop_back(), numbers.pop_back();
    if (separators != ":::" && separators != "::;")
        throw wrong("a label has hours, minutes, seconds and frames, as 10:00:00:00 or 10:00:00;00");
    Labels const labels = labelsOf(frequency);
    bool const drops = drop || separators == "::;";
    if (drops && !hasDropframe(frequency)) throw wrong("there is no drop-frame at this rate");
    if (numbers[0] >= 24 || numbers[1] >= 60 || numbers[2] >= 60) throw wrong("there is no such time of day");
    if (numbers[3] >= labels.frames_per_second)
        throw wrong(fmt::format("a second has frames 0 to {} at this rate", labels.frames_per_second - 1));
    if (second_field && labels.fields_per_frame == 1) throw wrong("a frame has one field at this rate");
    std::uint64_t const minutes = std::uint64_t{numbers[0]} * 60 + numbers[1];
    if (drops && minutes % 10 != 0 && numbers[2] == 0 && numbers[3] < Labels::DROPPED)
        throw wrong("drop-frame counting leaves this label out");
    std::uint64_t frame = (minutes * 60 + numbers[2]) * labels.frames_per_second + numbers[3];
    if (drops) frame -= Labels::DROPPED * (minutes - minutes / 10);
    std::uint64_t const fields = frame * labels.fields_per_frame + (second_field ? 1 : 0);
    return {frequency, drops ? DropframeFlag::df : DropframeFlag::ndf, static_cast<unsigned>(fields)};
}

VideoFrequency parseFrequency(std::string const& text) {
    std::wstring const wanted = wide(text);
    if (auto const found = toVideoFrequency(wanted.c_str()); found != VideoFrequency::none) return found;
    if (auto const standard = toVideoStandard(wanted.c_str()); standard != VideoStandard::none)
        return toVideoFrequency(standard);
    throw usage(fmt::format("{} is neither a rate such as 25Hz nor a standard such as '1080i 50Hz'", text));
}

VideoStandard parseStandard(std::string const& text) {
    auto const found = toVideoStandard(wide(text).c_str());
    if (found == VideoStandard::none)
        throw usage(fmt::format("{} is no standard; kelvonclip standards lists them", text));
    return found;
}

}  // namespace tool
