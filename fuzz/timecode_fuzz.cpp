// Timecode: arbitrary texts, bytes of units and counts, and the arithmetic between them.
//
// Input: frequency and flag (1 byte each), two counts (4 bytes each), a unit's 8 bytes, and a text in UTF-16.
#include <kelvonclip/kelvon_std.h>
#include <kelvonclip/kelvon_timecode.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "input.h"
#include "require.h"

namespace {

using namespace KelvonClip;
using fuzz::require;

void checkUndefined(KTimecode const& timecode) {
    require(timecode.get_nfields() == 0 && timecode.get_frequency() == VideoFrequency::none, "undefined has no count");
    require(timecode.get_days() == 0 && timecode.get_frames() == 0 && !timecode.get_f2(), "undefined has no label");
    require(timecode.toString(5) == L"(invalid)", "undefined has a text of its own");
    require(timecode == KTimecode(), "all that is undefined is equal");
}

// The label of a count is that count, and so is the text of a count without days.
void checkLabel(KTimecode const& timecode) {
    std::uint32_t const fields = timecode.get_nfields();
    unsigned const frames = timecode.get_frames();
    VideoFrequency const frequency = timecode.get_frequency();
    require(timecode_numfields(frequency, timecode.get_df(), timecode.get_days(), timecode.get_hours(),
                               timecode.get_minutes(), timecode.get_seconds(), frames, timecode.get_f2()) == fields,
            "the label's count is the timecode's");
    // Drop-frame at other rates than 59.94Hz has labels with second 60, which no text names.
    bool const has_second_60 = frequency != VideoFrequency::f59_94 && timecode.is_df();
    require(timecode.get_hours() < 24 && timecode.get_minutes() < 60 &&
                timecode.get_seconds() < (has_second_60 ? 61 : 60) && 2 * frames < timecode.get_fields_per_second(),
            "the components are in their ranges");
    KTimecode const within_day = timecode.get24();
    require(within_day.get_nfields() == fields % timecode.get_fields_per_day(), "without its days");
    for (unsigned count = 0; count <= 6; ++count)
        require(!timecode.toString(count).empty(), "every timecode has a text");
    if (has_second_60) return;
    KTimecode const again(frequency, timecode.get_df(), within_day.toString(4));
    require(again.is_defined() && again.get_nfields() == within_day.get_nfields(), "a text reads as it was written");
}

void check(KTimecode const& timecode) {
    if (!timecode.is_defined()) return checkUndefined(timecode);
    checkLabel(timecode);
}

void checkArithmetic(KTimecode const& a, KTimecode const& b) {
    require(a.cmp(b) == -b.cmp(a) && (a < b) == (b > a) && (a == b) == !(a != b), "the order is one");
    check(a + b);
    check(a - b);
    if (!a.is_defined() || !b.is_defined()) return;
    require((a + b).get_nfields() == a.get_nfields() + b.get_nfields(), "sums wrap at 32 bits");
    require((a - b).get_nfields() == (a < b ? 0 : a.get_nfields() - b.get_nfields()), "differences stop at 0");

    std::uint32_t const day = a.get_fields_per_day();
    KTimecode const from = a.get24(), step(a.get_frequency(), a.get_df(), b.get_nfields() % day);
    KTimecode const sum = KTimecode::add24(from, step);
    require(sum.get_nfields() == (from.get_nfields() + step.get_nfields()) % day, "a sum round the clock");
    require(KTimecode::sub24(sum, step) == from, "subtracting undoes adding");
    if (sum != from && 2 * (std::uint64_t{step.get_nfields()} % day) != day)
        require(sum.cmp24(from) == -from.cmp24(sum), "the order round the clock is one");
    KTimecode const one(a.get_frequency(), a.get_df(), 1);
    require(from.is_inrange24(from, one), "a range holds its first field");
    check(sum);
    KTimecode on_field = from;
    on_field.force_f2();
    require(on_field.is_defined(), "a field can be forced");
    check(KTimecode(a.get_frequency(), a.get_df(), on_field.get_nfields()));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    fuzz::Input input(data, size);
    auto const frequency = static_cast<VideoFrequency>(input.byte() % 16);
    auto const flag = static_cast<DropframeFlag>(input.byte() % 4);
    auto const first = static_cast<std::uint32_t>(input.number(4)),
               second = static_cast<std::uint32_t>(input.number(4));
    std::uint8_t unit[8];
    for (auto& byte : unit)
        byte = input.byte();
    std::wstring text;
    while (!input.empty())
        text += static_cast<wchar_t>(input.number(2));

    KTimecode const a(frequency, flag, first), b(frequency, flag, second);
    check(a);
    checkArithmetic(a, b);
    check(KTimecode(frequency, flag, text));
    check(KTimecode(frequency, text));
    checkArithmetic(a, KTimecode(frequency, flag, text));
    check(KTimecode::from_tc64(frequency, unit));
    check(KTimecode::from_sony(frequency, unit));
    KTimecode changed = a;
    changed.set_df(DropframeFlag::df);
    changed.set_nfields(second);
    check(changed);
    return 0;
}
