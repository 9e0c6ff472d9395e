// kelvon_timecode: the number of fields in each unit of time, and the timecode class.
//
// Invariant: a KTimecode is defined only if its frequency and flag are valid, so its units of time are never 0 fields
// long. The assertions below only fail for objects whose memory was damaged.
#include <kelvonclip/kelvon_timecode.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cwchar>
#include <string_view>
#include <utility>

#include "foundation/exported.h"
#include "foundation/kassert.h"
#include "standard/rates.h"

namespace KelvonClip {

namespace {

constexpr char SOURCE[] = "kelvon_timecode";

// A divisor, and its reciprocal: a division takes several times as long as a multiplication.
struct Divisor {
    static constexpr std::uint32_t SHIFT = 44;
    // Quotients of smaller numbers are exact, and their products fit into 64 bits.
    static constexpr std::uint32_t LIMIT = 1U << 23;

    constexpr Divisor(std::uint32_t divisor)
        : value(divisor), reciprocal(divisor == 0 ? 0 : (std::uint64_t{1} << SHIFT) / divisor + 1) {}

    std::uint32_t quotient(std::uint32_t number) const {
        return static_cast<std::uint32_t>(number * reciprocal >> SHIFT);
    }
    // The quotient; `number` becomes the remainder.
    std::uint32_t divide(std::uint32_t& number) const {
        std::uint32_t const result = quotient(number);
        number -= result * value;
        return result;
    }

    std::uint32_t value;
    std::uint64_t reciprocal;
};

struct FieldsPer {
    Divisor second, minute, ten_minutes;
    std::uint32_t hour, day;
};

// Without drop-frame, in value order; row 0 is not used.
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

// By frequency and flag. A value outside its enumeration counts as none.
constexpr std::size_t FLAGS = 1 + number(lastOf(DropframeFlag{}));
using FieldsTable = std::array<std::array<FieldsPer, FLAGS>, NON_DROP.size()>;
constexpr FieldsTable FIELDS = [] {
    auto const row = [](VideoFrequency frequency) -> std::array<FieldsPer, FLAGS> {
        FieldsPer const& plain = NON_DROP[number(frequency)];
        if (!valid(frequency)) return {UNKNOWN, UNKNOWN, UNKNOWN};
        if (!rate(frequency).dropframe) return {plain, plain, plain};
        return {UNKNOWN, frequency == VideoFrequency::f59_94 ? DROP_59_94 : DROP_29_97, plain};
    };
    return [&]<std::size_t... Value>(std::index_sequence<Value...>) {
        return FieldsTable{row(VideoFrequency{Value})...};
    }
    (std::make_index_sequence<NON_DROP.size()>());
}();
static_assert(NON_DROP.size() == 1 + number(lastOf(VideoFrequency{})), "row 0 and one row for each valid value");
static_assert(std::ranges::all_of(NON_DROP, [](FieldsPer const& per) { return per.day < Divisor::LIMIT; }));

constexpr FieldsPer const& fieldsPer(VideoFrequency frequency, DropframeFlag flag) {
    return rowOf(rowOf(FIELDS, frequency), flag);
}

constexpr DropframeFlag defaultFlag(VideoFrequency frequency) {
    return rate(frequency).dropframe ? DropframeFlag::df : DropframeFlag::ndf;
}

// The field count of a label.
std::uint32_t fieldsOf(FieldsPer const& per, std::uint32_t days, std::uint32_t hours, std::uint32_t minutes,
                       std::uint32_t seconds, std::uint32_t frames, bool f2) {
    return per.minute.value * (minutes % 10) + per.ten_minutes.value * (minutes / 10) + per.day * days +
           per.hour * hours + per.second.value * seconds + frames * 2 + (f2 ? 1 : 0);
}

// The label of a field count. The day has fields.
inline void workOut(TimecodeLabel& label, FieldsPer const& per, bool drop_frame, std::uint32_t count) {
    label.days = count < per.day ? 0 : count / per.day;
    std::uint32_t rest = count - label.days * per.day;
    std::uint32_t const tens = per.ten_minutes.divide(rest);
    label.hours = tens / 6;
    // Drop-frame: after the first four fields, a ten-minute block consists of ten equal minutes that all start at the
    // fifth label (frame 2, field 1).
    // KEEP: four fields at 29.97Hz too, although a minute skips only two labels there. The first two fields of such a
    // minute are labelled as second 60 of the minute before.
    constexpr std::uint32_t AHEAD = 4;
    std::uint32_t const ahead = drop_frame ? std::min(rest, AHEAD) : 0;
    rest -= ahead;
    label.minutes = tens % 6 * 10 + per.minute.divide(rest);
    rest += ahead;
    label.seconds = per.second.divide(rest);
    label.frames = rest / 2;
    label.f2 = rest % 2 != 0;
}

// False, and a label of zeros, for a frequency or a flag that is not valid.
inline bool labelOf(TimecodeLabel& label, VideoFrequency frequency, DropframeFlag flag, std::uint32_t count) {
    if (!valid(frequency) || !valid(flag)) {
        label = {};
        return false;
    }
    workOut(label, FIELDS[number(frequency)][number(flag)], flag == DropframeFlag::df, count);
    return true;
}

// --- Text ---

constexpr wchar_t INVALID[] = L"(invalid)";

// Room for components of any size, as damaged memory may hold.
using LongText = std::array<wchar_t, 64>;

// 00 to 99
constexpr auto TWO_DIGITS = [] {
    std::array<std::array<wchar_t, 2>, 100> texts{};
    for (int n = 0; n < 100; ++n)
        texts[static_cast<std::size_t>(n)] = {static_cast<wchar_t>(L'0' + n / 10), static_cast<wchar_t>(L'0' + n % 10)};
    return texts;
}();

// Each writes a number and returns the end.
wchar_t* writeDigits(wchar_t* to, std::uint32_t number) {
    if (number >= 10) to = writeDigits(to, number / 10);
    *to = static_cast<wchar_t>(L'0' + number % 10);
    return to + 1;
}
inline wchar_t* writeTwoDigits(wchar_t* to, std::uint32_t number) {
    if (number >= TWO_DIGITS.size()) return writeDigits(to, number);
    return std::ranges::copy(TWO_DIGITS[number], to).out;
}

// Writes at least `shown` components, and all up to the largest that is not 0; returns the end. No terminating zero.
inline wchar_t* writeText(wchar_t* to, TimecodeLabel const& label, VideoFrequency frequency, DropframeFlag flag,
                          unsigned int shown) {
    bool const drop = rate(frequency).dropframe && flag == DropframeFlag::df;
    wchar_t const separator = drop ? (label.f2 ? L';' : L',') : (label.f2 ? L':' : L'.');
    bool const days = shown > 4 || label.days != 0;
    bool const hours = shown > 3 || days || label.hours != 0;
    bool const minutes = shown > 2 || hours || label.minutes != 0;
    bool const seconds = shown > 1 || minutes || label.seconds != 0;
    auto const write = [&](std::uint32_t number) {
        to = writeTwoDigits(to, number);
        *to++ = separator;
    };
    if (days) {
        to = writeDigits(to, label.days);
        *to++ = L'+';
    }
    if (hours) write(label.hours);
    if (minutes) write(label.minutes);
    if (seconds) write(label.seconds);
    return writeTwoDigits(to, label.frames);
}

}  // namespace

bool timecode_label(VideoFrequency frequency, DropframeFlag flag, unsigned int nfields, TimecodeLabel* label) {
    return label != nullptr && labelOf(*label, frequency, flag, nfields);
}

unsigned int timecode_text(VideoFrequency frequency, DropframeFlag flag, unsigned int nfields, unsigned int count,
                           wchar_t* text, unsigned int size) {
    if (text == nullptr || size < TIMECODE_TEXT_SIZE) {
        wchar_t whole[TIMECODE_TEXT_SIZE];
        unsigned int const length = timecode_text(frequency, flag, nfields, count, whole, TIMECODE_TEXT_SIZE);
        if (text != nullptr && size > 0) std::wcscpy(text, length < size ? whole : L"");
        return length;
    }
    TimecodeLabel label;
    bool const defined = labelOf(label, frequency, flag, nfields);
    wchar_t* const end = defined ? writeText(text, label, frequency, flag, count)
                                 : std::ranges::copy(std::wstring_view(INVALID), text).out;
    *end = 0;
    return static_cast<unsigned int>(end - text);
}

std::uint32_t timecode_fields_per_second(VideoFrequency frequency, DropframeFlag flag) {
    return fieldsPer(frequency, flag).second.value;
}
std::uint32_t timecode_fields_per_second(VideoFrequency frequency) {
    return timecode_fields_per_second(frequency, defaultFlag(frequency));
}
std::uint32_t timecode_fields_per_minute(VideoFrequency frequency, DropframeFlag flag) {
    return fieldsPer(frequency, flag).minute.value;
}
std::uint32_t timecode_fields_per_minute(VideoFrequency frequency) {
    return timecode_fields_per_minute(frequency, defaultFlag(frequency));
}
std::uint32_t timecode_fields_per_10minutes(VideoFrequency frequency, DropframeFlag flag) {
    return fieldsPer(frequency, flag).ten_minutes.value;
}
std::uint32_t timecode_fields_per_10minutes(VideoFrequency frequency) {
    return timecode_fields_per_10minutes(frequency, defaultFlag(frequency));
}
std::uint32_t timecode_fields_per_hour(VideoFrequency frequency, DropframeFlag flag) {
    return fieldsPer(frequency, flag).hour;
}
std::uint32_t timecode_fields_per_hour(VideoFrequency frequency) {
    return timecode_fields_per_hour(frequency, defaultFlag(frequency));
}
std::uint32_t timecode_fields_per_day(VideoFrequency frequency, DropframeFlag flag) {
    return fieldsPer(frequency, flag).day;
}
std::uint32_t timecode_fields_per_day(VideoFrequency frequency) {
    return timecode_fields_per_day(frequency, defaultFlag(frequency));
}

std::uint32_t timecode_numfields(VideoFrequency frequency, DropframeFlag flag, unsigned int days, unsigned int hours,
                                 unsigned int minutes, unsigned int seconds, unsigned int frames, bool f2) {
    FieldsPer const& per = fieldsPer(frequency, flag);
    if (per.day == 0) return 0;  // unknown
    return fieldsOf(per, days, hours, minutes, seconds, frames, f2);
}
std::uint32_t timecode_numfields(VideoFrequency frequency, unsigned int days, unsigned int hours, unsigned int minutes,
                                 unsigned int seconds, unsigned int frames, bool f2) {
    return timecode_numfields(frequency, defaultFlag(frequency), days, hours, minutes, seconds, frames, f2);
}

// The compiler emits every function whose address is stored here, so the library exports what is inline too.
[[gnu::used]] constexpr unsigned int (KTimecode::*EMITTED[])() const = {
    &KTimecode::get_nfields, &KTimecode::get_days,    &KTimecode::get_hours,
    &KTimecode::get_minutes, &KTimecode::get_seconds, &KTimecode::get_frames};

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

KTimecode::KTimecode(VideoFrequency at, unsigned int nfields) : KTimecode(at, defaultFlag(at), nfields) {}

KTimecode::KTimecode(VideoFrequency at, DropframeFlag counting, unsigned int nfields) { set(at, counting, nfields); }

KTimecode::KTimecode(VideoFrequency at, unsigned int label_hours, unsigned int label_minutes,
                     unsigned int label_seconds, unsigned int label_frames, bool label_f2)
    : KTimecode(at, defaultFlag(at), label_hours, label_minutes, label_seconds, label_frames, label_f2) {}

KTimecode::KTimecode(VideoFrequency at, DropframeFlag counting, unsigned int label_hours, unsigned int label_minutes,
                     unsigned int label_seconds, unsigned int label_frames, bool label_f2) {
    set(at, counting,
        fieldsOf(fieldsPer(at, counting), 0, label_hours, label_minutes, label_seconds, label_frames, label_f2));
}

KTimecode::KTimecode(VideoFrequency at, std::wstring const& text) : KTimecode(at, defaultFlag(at), text) {}

KTimecode::KTimecode(VideoFrequency at, DropframeFlag counting, std::wstring const& text) {
    if (valid(at) && valid(counting)) parse(at, counting, text);
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
    bool const drop = rate(at).dropframe && (byte(3) & 0x40) != 0;
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

bool KTimecode::to_sony(void* bytes) const {
    if (!bytes || !defined) return false;
    KTimecode label(frequency, flag, count);  // a kept label may be that of another flag
    label.wrap24();
    label.cache_validate();
    bool const sixty_fields = toVideoRoughFrequency(frequency) == VideoRoughFrequency::f60;
    bool const drop = hasDropframe(frequency) && flag == DropframeFlag::df;
    std::uint32_t const packed[] = {label.hours | (label.f2 && !sixty_fields ? 0x80u : 0u), label.minutes,
                                    label.seconds | (label.f2 && sixty_fields ? 0x80u : 0u),
                                    label.frames | (drop ? 0x40u : 0u)};
    std::ranges::transform(packed, static_cast<unsigned char*>(bytes),
                           [](std::uint32_t value) { return static_cast<unsigned char>(value); });
    return true;
}

bool KTimecode::to_tc64(void* bytes) const {
    if (!bytes) return false;
    auto* const nibbles = static_cast<unsigned char*>(bytes);
    std::array<unsigned char, 4> packed{};
    if (!to_sony(packed.data())) {
        std::fill_n(nibbles, 8, static_cast<unsigned char>(0xFF));
        return true;
    }
    for (std::size_t i = 0; i < packed.size(); ++i) {
        nibbles[2 * i] = packed[i] & 0x0F;
        nibbles[2 * i + 1] = packed[i] >> 4;
    }
    return true;
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
    TimecodeLabel label;
    workOut(label, per, flag == DropframeFlag::df, count);
    days = label.days;
    hours = label.hours;
    minutes = label.minutes;
    seconds = label.seconds;
    frames = label.frames;
    f2 = label.f2;
    field_in_second = 2 * frames + (f2 ? 1 : 0);
}

bool KTimecode::is_defined() const { return defined; }
VideoFrequency KTimecode::get_frequency() const { return defined ? frequency : VideoFrequency::none; }

bool KTimecode::on_field_2() const { return cache_valid ? f2 : count % 2 != 0; }
bool KTimecode::get_f2() const { return defined && on_field_2(); }

DropframeFlag KTimecode::get_df() const { return defined ? flag : DropframeFlag::none; }
bool KTimecode::is_df() const { return defined && flag == DropframeFlag::df; }
bool KTimecode::is_ndf() const { return !is_df(); }

unsigned int KTimecode::get_fields_per_second() const { return defined ? fieldsPer(frequency, flag).second.value : 0; }
unsigned int KTimecode::get_fields_per_minute() const { return defined ? fieldsPer(frequency, flag).minute.value : 0; }
unsigned int KTimecode::get_fields_per_10minutes() const {
    return defined ? fieldsPer(frequency, flag).ten_minutes.value : 0;
}
unsigned int KTimecode::get_fields_per_hour() const { return defined ? fieldsPer(frequency, flag).hour : 0; }
unsigned int KTimecode::get_fields_per_day() const { return defined ? fieldsPer(frequency, flag).day : 0; }

// ---------------------------------------------------------------------------------------------------------- changes

// Sets the count, discards the cached label, and updates whether the timecode is defined.
void KTimecode::revalidate(unsigned int nfields) {
    cache_valid = false;
    defined = valid(frequency) && valid(flag);
    if (defined) count = nfields;
}

void KTimecode::set(VideoFrequency at, unsigned int nfields) { set(at, defaultFlag(at), nfields); }

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
    if (!kassert(valid(counting), SOURCE, 843, "KelvonClip::isValid (flag)")) return;
    if (rate(frequency).dropframe) flag = counting;
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
        if (!defined) return INVALID;
        cache_validate();
        LongText text;
        return {text.data(),
                writeText(text.data(), {days, hours, minutes, seconds, frames, f2}, frequency, flag, shown)};
    });
}

}  // namespace KelvonClip
