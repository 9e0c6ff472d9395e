// kelvon_timecode: the number of fields in each unit of time, and the timecode class.
//
// Invariant: a KTimecode is defined only if its frequency and flag are valid, so its units of time are never 0 fields
// long. The assertions below only fail for objects whose memory was damaged.
#include <kelvonclip/kelvon_timecode.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>

#include "foundation/exported.h"
#include "foundation/kassert.h"

namespace KelvonClip {

namespace {

constexpr char SOURCE[] = "kelvon_timecode";

struct FieldsPer {
    std::uint32_t second, minute, ten_minutes, hour, day;
};

// In value order, after row 0, which is not used.
constexpr auto NON_DROP = std::to_array<FieldsPer>({
    {0, 0, 0, 0, 0},
    {60, 3600, 36000, 216000, 5184000},  // 60Hz
    {60, 3600, 36000, 216000, 5184000},  // 59.94Hz
    {50, 3000, 30000, 180000, 4320000},  // 50Hz
    {48, 2880, 28800, 172800, 4147200},  // 48Hz
    {48, 2880, 28800, 172800, 4147200},  // 47.95Hz
    {30, 1800, 18000, 108000, 2592000},  // 30Hz
    {30, 1800, 18000, 108000, 2592000},  // 29.97Hz
    {25, 1500, 15000, 90000, 2160000},   // 25Hz
    {24, 1440, 14400, 86400, 2073600},   // 24Hz
    {24, 1440, 14400, 86400, 2073600},   // 23.98Hz
});
// Nine of ten minutes skip the labels of four fields at 59.94Hz, and of two fields at 29.97Hz.
constexpr FieldsPer DROP_59_94 = {60, 3596, 35964, 215784, 5178816};
constexpr FieldsPer DROP_29_97 = {30, 1798, 17982, 107892, 2589408};
// KEEP: the fallback for an unknown frequency or flag, 29.97Hz included, is drop-frame at 59.94Hz with a day of 0
// fields.
constexpr FieldsPer UNKNOWN = {60, 3596, 35964, 215784, 0};

FieldsPer const& fieldsPer(VideoFrequency frequency, DropframeFlag flag) {
    if (!isValid(frequency)) return UNKNOWN;
    if (hasDropframe(frequency)) {
        if (!isValid(flag)) return UNKNOWN;
        if (flag == DropframeFlag::df) return frequency == VideoFrequency::f59_94 ? DROP_59_94 : DROP_29_97;
    }
    return NON_DROP[static_cast<std::uint32_t>(frequency)];
}

// The field count of a label.
std::uint32_t fieldsOf(FieldsPer const& per, std::uint32_t days, std::uint32_t hours, std::uint32_t minutes,
                       std::uint32_t seconds, std::uint32_t frames, bool f2) {
    return per.minute * (minutes % 10) + per.ten_minutes * (minutes / 10) + per.day * days + per.hour * hours +
           per.second * seconds + frames * 2 + (f2 ? 1 : 0);
}

}  // namespace

std::uint32_t timecode_fields_per_second(VideoFrequency frequency, DropframeFlag flag) {
    return fieldsPer(frequency, flag).second;
}
std::uint32_t timecode_fields_per_second(VideoFrequency frequency) {
    return timecode_fields_per_second(frequency, defaultDropframeFlag(frequency));
}
std::uint32_t timecode_fields_per_minute(VideoFrequency frequency, DropframeFlag flag) {
    return fieldsPer(frequency, flag).minute;
}
std::uint32_t timecode_fields_per_minute(VideoFrequency frequency) {
    return timecode_fields_per_minute(frequency, defaultDropframeFlag(frequency));
}
std::uint32_t timecode_fields_per_10minutes(VideoFrequency frequency, DropframeFlag flag) {
    return fieldsPer(frequency, flag).ten_minutes;
}
std::uint32_t timecode_fields_per_10minutes(VideoFrequency frequency) {
    return timecode_fields_per_10minutes(frequency, defaultDropframeFlag(frequency));
}
std::uint32_t timecode_fields_per_hour(VideoFrequency frequency, DropframeFlag flag) {
    return fieldsPer(frequency, flag).hour;
}
std::uint32_t timecode_fields_per_hour(VideoFrequency frequency) {
    return timecode_fields_per_hour(frequency, defaultDropframeFlag(frequency));
}
std::uint32_t timecode_fields_per_day(VideoFrequency frequency, DropframeFlag flag) {
    return fieldsPer(frequency, flag).day;
}
std::uint32_t timecode_fields_per_day(VideoFrequency frequency) {
    return timecode_fields_per_day(frequency, defaultDropframeFlag(frequency));
}

std::uint32_t timecode_numfields(VideoFrequency frequency, DropframeFlag flag, unsigned int days, unsigned int hours,
                                 unsigned int minutes, unsigned int seconds, unsigned int frames, bool f2) {
    if (!isValid(frequency)) return 0;
    if (hasDropframe(frequency) && !isValid(flag)) return 0;
    return fieldsOf(fieldsPer(frequency, flag), days, hours, minutes, seconds, frames, f2);
}
std::uint32_t timecode_numfields(VideoFrequency frequency, unsigned int days, unsigned int hours, unsigned int minutes,
                                 unsigned int seconds, unsigned int frames, bool f2) {
    return timecode_numfields(frequency, defaultDropframeFlag(frequency), days, hours, minutes, seconds, frames, f2);
}

// ---------------------------------------------------------------------------------------------- making a timecode

KTimecode::KTimecode() = default;

KTimecode::KTimecode(KTimecode const& other) { *this = other; }

// Copies only the members that are meaningful in the current state.
KTimecode& KTimecode::operator=(KTimecode const& other) {
    if (this == &other) return *this;
    defined = other.defined;
    cache_valid = other.defined && other.cache_valid;
    if (!defined) return *this;
    frequency = other.frequency;
    flag = other.flag;
    count = other.count;
    if (!cache_valid) return *this;
    days = other.days;
    hours = other.hours;
    minutes = other.minutes;
    seconds = other.seconds;
    field_in_second = other.field_in_second;
    frames = other.frames;
    f2 = other.f2;
    return *this;
}

KTimecode::KTimecode(VideoFrequency at, unsigned int nfields) : KTimecode(at, defaultDropframeFlag(at), nfields) {}

KTimecode::KTimecode(VideoFrequency at, DropframeFlag counting, unsigned int nfields) { set(at, counting, nfields); }

KTimecode::KTimecode(VideoFrequency at, unsigned int label_hours, unsigned int label_minutes,
                     unsigned int label_seconds, unsigned int label_frames, bool label_f2)
    : KTimecode(at, defaultDropframeFlag(at), label_hours, label_minutes, label_seconds, label_frames, label_f2) {}

KTimecode::KTimecode(VideoFrequency at, DropframeFlag counting, unsigned int label_hours, unsigned int label_minutes,
                     unsigned int label_seconds, unsigned int label_frames, bool label_f2) {
    set(at, counting,
        fieldsOf(fieldsPer(at, counting), 0, label_hours, label_minutes, label_seconds, label_frames, label_f2));
}

KTimecode::KTimecode(VideoFrequency at, std::wstring const& text) : KTimecode(at, defaultDropframeFlag(at), text) {}

KTimecode::KTimecode(VideoFrequency at, DropframeFlag counting, std::wstring const& text) {
    if (isValid(at) && isValid(counting)) parse(at, counting, text);
}

// Works on single wide units: separators and digits are never part of a surrogate pair.
void KTimecode::parse(VideoFrequency at, DropframeFlag wanted, std::wstring const& text) {
    std::size_t const separator_at = text.find_first_of(L",.:;");
    if (separator_at == std::wstring::npos) return set_undefined();
    wchar_t const separator = text[separator_at];

    // Components are read from the end: frames, seconds, minutes, hours. Text before the hours is ignored.
    std::array<std::uint32_t, 4> components{};
    std::size_t end = text.size();
    for (auto& component : components) {
        std::size_t const before = end == 0 ? std::wstring::npos : text.rfind(separator, end - 1);
        for (std::size_t i = before == std::wstring::npos ? 0 : before + 1; i < end; ++i)
            if (text[i] >= L'0' && text[i] <= L'9')
                component = component * 10 + static_cast<std::uint32_t>(text[i] - L'0');
        if (before == std::wstring::npos) break;
        end = before;
    }
    auto [label_frames, label_seconds, label_minutes, label_hours] = components;

    bool const label_f2 = separator == L':' || separator == L';';
    DropframeFlag const counting = dropframeByVideoFrequency(at, wanted);
    // A skipped label becomes the first label that exists. KEEP: frame 2 at 29.97Hz too, although frame 1 exists there.
    if (counting == DropframeFlag::df && label_minutes % 10 != 0 && label_seconds == 0)
        label_frames = std::max<std::uint32_t>(label_frames, 2);
    set(at, counting,
        fieldsOf(fieldsPer(at, counting), 0, label_hours, label_minutes, label_seconds, label_frames, label_f2));
}

KTimecode KTimecode::from_sony(VideoFrequency at, void const* bytes) {
    if (!bytes) return {};
    auto const byte = [&](int i) { return static_cast<unsigned char const*>(bytes)[i]; };
    // KEEP: minutes and frames are not masked to 7 bits, so a set bit 7 gives huge values.
    auto const widened = [](int value) { return static_cast<std::uint32_t>(static_cast<signed char>(value)); };

    bool const sixty_fields = toVideoRoughFrequency(at) == VideoRoughFrequency::f60;
    bool const label_f2 = (byte(sixty_fields ? 2 : 0) & 0x80) != 0;
    bool const drop = hasDropframe(at) && (byte(3) & 0x40) != 0;
    return {at,
            drop ? DropframeFlag::df : DropframeFlag::ndf,
            byte(0) & 0x7Fu,
            widened(byte(1)),
            byte(2) & 0x7Fu,
            widened(byte(3) & ~0x40),
            label_f2};
}

KTimecode KTimecode::from_tc64(VideoFrequency at, void const* bytes) {
    if (!bytes) return {};
    auto const* const nibbles = static_cast<unsigned char const*>(bytes);
    if (std::all_of(nibbles, nibbles + 8, [](unsigned char byte) { return byte == 0xFF; })) return {};
    std::array<unsigned char, 4> packed{};
    for (std::size_t i = 0; i < packed.size(); ++i)
        packed[i] = static_cast<unsigned char>((nibbles[2 * i] & 0x0F) | (nibbles[2 * i + 1] & 0x0F) << 4);
    return from_sony(at, packed.data());
}

// ------------------------------------------------------------------------------------------------------ the label

// Works out the label from the field count.
void KTimecode::cache_validate() const {
    if (!defined) {
        cache_valid = f2 = false;
        days = hours = minutes = seconds = field_in_second = frames = 0;
        return;
    }
    if (cache_valid) return;
    cache_valid = true;  // KEEP: set first, so that a failed assertion is reported only once

    FieldsPer const& per = fieldsPer(frequency, flag);
    if (!kassert(per.day != 0, SOURCE, 635, "fields_per_day != 0")) return;
    days = count / per.day;
    std::uint32_t rest = count % per.day;
    if (!kassert(per.hour != 0, SOURCE, 640, "fields_per_hour != 0")) return;
    hours = rest / per.hour;
    rest %= per.hour;
    if (!kassert(per.ten_minutes != 0, SOURCE, 645, "fields_per_10minutes != 0")) return;
    std::uint32_t const tens = rest / per.ten_minutes;
    rest %= per.ten_minutes;

    // Drop-frame: after the first four fields, a ten-minute block consists of ten equal minutes that all start at the
    // fifth label (frame 2, field 1).
    // KEEP: four fields at 29.97Hz too, although a minute skips only two labels there. The first two fields of such a
    // minute are labelled as second 60 of the minute before.
    constexpr std::uint32_t AHEAD = 4;
    std::uint32_t ahead = 0;
    if (flag == DropframeFlag::df) {
        ahead = std::min(rest, AHEAD);
        rest -= ahead;
    }
    if (!kassert(per.minute != 0, SOURCE, 665, "fields_per_minute != 0")) return;
    minutes = rest / per.minute + tens * 10;
    rest = rest % per.minute + ahead;

    if (!kassert(per.second != 0, SOURCE, 677, "fields_per_second != 0")) return;
    seconds = rest / per.second;
    field_in_second = rest % per.second;
    frames = field_in_second / 2;
    f2 = field_in_second % 2 != 0;
}

bool KTimecode::is_defined() const { return defined; }
unsigned int KTimecode::get_nfields() const { return defined ? count : 0; }
VideoFrequency KTimecode::get_frequency() const { return defined ? frequency : VideoFrequency::none; }

unsigned int KTimecode::get_days() const {
    cache_validate();
    return days;
}
unsigned int KTimecode::get_hours() const {
    cache_validate();
    return hours;
}
unsigned int KTimecode::get_minutes() const {
    cache_validate();
    return minutes;
}
unsigned int KTimecode::get_seconds() const {
    cache_validate();
    return seconds;
}
unsigned int KTimecode::get_frames() const {
    cache_validate();
    return frames;
}

bool KTimecode::on_field_2() const { return cache_valid ? f2 : count % 2 != 0; }
bool KTimecode::get_f2() const { return defined && on_field_2(); }

DropframeFlag KTimecode::get_df() const { return defined ? flag : DropframeFlag::none; }
bool KTimecode::is_df() const { return defined && flag == DropframeFlag::df; }
bool KTimecode::is_ndf() const { return !is_df(); }

unsigned int KTimecode::get_fields_per_second() const { return defined ? fieldsPer(frequency, flag).second : 0; }
unsigned int KTimecode::get_fields_per_minute() const { return defined ? fieldsPer(frequency, flag).minute : 0; }
unsigned int KTimecode::get_fields_per_10minutes() const {
    return defined ? fieldsPer(frequency, flag).ten_minutes : 0;
}
unsigned int KTimecode::get_fields_per_hour() const { return defined ? fieldsPer(frequency, flag).hour : 0; }
unsigned int KTimecode::get_fields_per_day() const { return defined ? fieldsPer(frequency, flag).day : 0; }

// ---------------------------------------------------------------------------------------------------------- changes

// Sets the count, discards the cached label, and updates whether the timecode is defined.
void KTimecode::revalidate(unsigned int nfields) {
    cache_valid = false;
    defined = isValid(frequency) && isValid(flag);
    if (defined) count = nfields;
}

void KTimecode::set(VideoFrequency at, unsigned int nfields) { set(at, defaultDropframeFlag(at), nfields); }

void KTimecode::set(VideoFrequency at, DropframeFlag counting, unsigned int nfields) {
    frequency = at;
    flag = counting;
    revalidate(nfields);
}

void KTimecode::set_nfields(unsigned int nfields) {
    if (defined) revalidate(nfields);
}

void KTimecode::set_undefined() { defined = cache_valid = false; }

// KEEP: the cached label is not updated, although it was worked out with the old flag.
void KTimecode::set_df(DropframeFlag counting) {
    if (!kassert(isValid(counting), SOURCE, 843, "KelvonClip::isValid (flag)")) return;
    if (hasDropframe(frequency)) flag = counting;
}
void KTimecode::set_df() { set_df(DropframeFlag::df); }
void KTimecode::set_ndf() { set_df(DropframeFlag::ndf); }

// ------------------------------------------------------------------------------------------------------- comparison

int KTimecode::cmp(KTimecode const& other) const {
    if (!defined) return other.defined ? 1 : 0;
    if (!other.defined || count < other.count) return -1;
    return count > other.count ? 1 : 0;
}
int KTimecode::cmp(KTimecode const& a, KTimecode const& b) { return a.cmp(b); }

int KTimecode::cmp24(KTimecode const& other) const {
    if (!defined || !other.defined) return cmp(other);
    if (count == other.count) return 0;
    std::uint32_t const day = get_fields_per_day();  // not 0: the timecode is defined
    // NOLINTNEXTLINE(clang-analyzer-core.DivideZero)
    std::uint32_t const ahead = (day + count % day - other.count % day) % day;
    if (ahead == 0) return 0;
    return ahead > day / 2 ? -1 : 1;
}
int KTimecode::cmp24(KTimecode const& a, KTimecode const& b) { return a.cmp24(b); }

bool KTimecode::operator==(KTimecode const& other) const { return cmp(other) == 0; }
bool KTimecode::operator!=(KTimecode const& other) const { return cmp(other) != 0; }
bool KTimecode::operator<(KTimecode const& other) const { return cmp(other) < 0; }
bool KTimecode::operator<=(KTimecode const& other) const { return cmp(other) <= 0; }
bool KTimecode::operator>(KTimecode const& other) const { return cmp(other) > 0; }
bool KTimecode::operator>=(KTimecode const& other) const { return cmp(other) >= 0; }

// ------------------------------------------------------------------------------------------------------- arithmetic

KTimecode& KTimecode::operator++() { return *this += 1u; }

KTimecode& KTimecode::operator+=(unsigned int nfields) {
    set_nfields(count + nfields);
    return *this;
}

KTimecode& KTimecode::operator+=(KTimecode const& other) {
    if (other.defined) return *this += other.count;
    set_undefined();
    return *this;
}

KTimecode& KTimecode::operator-=(unsigned int nfields) {
    set_nfields(count - std::min(count, nfields));
    return *this;
}

KTimecode& KTimecode::operator-=(KTimecode const& other) {
    if (other.defined) return *this -= other.count;
    set_undefined();
    return *this;
}

KTimecode KTimecode::operator+(unsigned int nfields) const { return KTimecode(*this) += nfields; }
KTimecode KTimecode::operator+(KTimecode const& other) const { return KTimecode(*this) += other; }
KTimecode KTimecode::operator-(unsigned int nfields) const { return KTimecode(*this) -= nfields; }
KTimecode KTimecode::operator-(KTimecode const& other) const { return KTimecode(*this) -= other; }

void KTimecode::add(unsigned int nfields, bool wrap) {
    *this += nfields;
    if (wrap) wrap24();
}
void KTimecode::add(KTimecode const& other, bool wrap) { add(other.count, wrap); }

// KEEP: without `wrap` the count wraps at 32 bits, unlike the operators, which stop at 0.
void KTimecode::subtract(unsigned int nfields, bool wrap) {
    if (!defined) return;
    if (wrap && nfields > count) {
        std::uint32_t const day = get_fields_per_day();
        if (!kassert(day != 0, SOURCE, 299, "fpd != 0")) return;
        nfields %= day;
        wrap24();
        if (nfields > count) return set_nfields(day + count - nfields);
    }
    set_nfields(count - nfields);
}
void KTimecode::subtract(KTimecode const& other, bool wrap) { subtract(other.count, wrap); }

void KTimecode::add24(unsigned int nfields) { add(nfields, true); }
void KTimecode::add24(KTimecode const& other) { add(other, true); }
void KTimecode::sub24(unsigned int nfields) { subtract(nfields, true); }
void KTimecode::sub24(KTimecode const& other) { subtract(other, true); }

KTimecode KTimecode::add24(KTimecode const& a, unsigned int nfields) {
    KTimecode sum = a;
    sum.add24(nfields);
    return sum;
}
KTimecode KTimecode::add24(KTimecode const& a, KTimecode const& b) {
    KTimecode sum = a;
    sum.add24(b);
    return sum;
}
KTimecode KTimecode::sub24(KTimecode const& a, unsigned int nfields) {
    KTimecode difference = a;
    difference.sub24(nfields);
    return difference;
}
KTimecode KTimecode::sub24(KTimecode const& a, KTimecode const& b) {
    KTimecode difference = a;
    difference.sub24(b);
    return difference;
}

void KTimecode::wrap24() {
    if (get_days() == 0) return;  // an undefined timecode has no days
    set_nfields(timecode_numfields(frequency, flag, 0, hours, minutes, seconds, frames, f2));
}

KTimecode KTimecode::get24() const {
    KTimecode copy = *this;
    if (copy.defined && count >= get_fields_per_day()) copy.wrap24();
    return copy;
}

KTimecode KTimecode::t24() const { return {frequency, flag, timecode_fields_per_day(frequency, flag)}; }

bool KTimecode::is_inrange(KTimecode const& start, KTimecode const& length) const {
    if (!defined || !start.defined || !length.defined) return false;
    return start <= *this && *this < start + length;
}

bool KTimecode::is_inrange24(KTimecode start, KTimecode length) const {
    if (!defined || !start.defined || !length.defined || get_days() != 0) return false;
    start.wrap24();
    length.wrap24();
    KTimecode end = start + length;
    if (end.get_days() == 0) return is_inrange(start, length);
    // The range passes midnight: this timecode is in its part before midnight or in its part after it.
    if (start <= *this) return true;
    end.wrap24();
    return *this < end;
}

// ----------------------------------------------------------------------------------------------------- field forcing
// KEEP: these functions change the count and the cached field; the rest of a cached label is not updated.

void KTimecode::force_f1() {
    if (!defined || !on_field_2()) return;
    count -= 1;
    f2 = false;
}

// KEEP: the count of an undefined timecode changes too; it stays undefined.
void KTimecode::force_f2() {
    if (get_f2()) return;
    count += 1;
    f2 = true;
}

void KTimecode::force_field(bool wanted) {
    if (get_f2() == wanted) return;
    count = wanted ? count + 1 : count - 1;
    f2 = wanted;
}

// ------------------------------------------------------------------------------------------------------------- text

std::wstring KTimecode::toString(unsigned int shown) const {
    return exportedQuery(std::wstring(), [&]() -> std::wstring {
        if (!defined) return L"(invalid)";
        cache_validate();
        bool const drop = dropframeByVideoFrequency(frequency, flag) == DropframeFlag::df;
        char const separator = drop ? (f2 ? ';' : ',') : (f2 ? ':' : '.');

        // Components from the smallest up. All components up to the largest non-zero one are shown.
        std::array<std::uint32_t, 5> const components = {frames, seconds, minutes, hours, days};
        constexpr unsigned int DAYS = 4;
        unsigned int needed = 5;
        while (needed > 1 && components[needed - 1] == 0)
            --needed;
        unsigned int const count_shown = std::clamp(shown, needed, 5u);

        std::string text;
        for (unsigned int i = count_shown; i-- > 0;) {
            std::array<char, 12> number{};
            std::snprintf(number.data(), number.size(), i == DAYS ? "%u" : "%02u", components[i]);
            text += number.data();
            if (i > 0) text += i == DAYS ? '+' : separator;
        }
        return std::wstring(text.begin(), text.end());
    });
}

}  // namespace KelvonClip
