/// @file
/// Timecode: counts of fields, their labels, and the arithmetic between them.
///
/// A timecode is a number of fields since midnight of day 0 at a frequency, with labels that are drop-frame or not.
/// What is called field here is one unit of the VideoFrequency: a field of an interlaced raster, a frame of a
/// progressive one. A label (days, hours, minutes, seconds, frames, field) always counts two fields to a frame: its
/// field count is frames * 2, plus 1 on field 2, plus the fields of the larger units.
///
/// So at a progressive rate two pictures share a frame number, the second one on field 2. At 50Hz, 50i and 50p alike,
/// frames run from 0 to 24. At 25Hz (25p) the 25 pictures of a second are labelled frame 0 field 1, frame 0 field 2,
/// frame 1 field 1, ... frame 12 field 1: frames run from 0 to 12, and the last one has no field 2. Whoever wants to
/// show frames 0 to 24 at 25p shows frames * 2, plus 1 on field 2.
///
/// Counts are unsigned 32-bit numbers; sums and products wrap silently.
///
/// Threads: the functions may be called from any thread at any time; a KTimecode is used by one at a time.
/// Source of the counting rules: docs/standards.md, "Timecode".
#pragma once

#include <cstdint>
#include <string>

#include <kelvonclip/export.h>
#include <kelvonclip/kelvon_std.h>

namespace KelvonClip {

/// @{
/// Fields in a unit of time. In drop-frame counting the minute is one of the nine of ten that skip labels. Without a
/// flag, that of defaultDropframeFlag counts.
/// An unknown frequency, and at 59.94Hz and 29.97Hz an unknown flag, gives 60, 3596, 35964, 215784 and, for the day, 0.
/// At the other rates the flag is not looked at.
KELVONCLIP_API std::uint32_t timecode_fields_per_second(VideoFrequency frequency, DropframeFlag flag);
KELVONCLIP_API std::uint32_t timecode_fields_per_second(VideoFrequency frequency);
KELVONCLIP_API std::uint32_t timecode_fields_per_minute(VideoFrequency frequency, DropframeFlag flag);
KELVONCLIP_API std::uint32_t timecode_fields_per_minute(VideoFrequency frequency);
KELVONCLIP_API std::uint32_t timecode_fields_per_10minutes(VideoFrequency frequency, DropframeFlag flag);
KELVONCLIP_API std::uint32_t timecode_fields_per_10minutes(VideoFrequency frequency);
KELVONCLIP_API std::uint32_t timecode_fields_per_hour(VideoFrequency frequency, DropframeFlag flag);
KELVONCLIP_API std::uint32_t timecode_fields_per_hour(VideoFrequency frequency);
KELVONCLIP_API std::uint32_t timecode_fields_per_day(VideoFrequency frequency, DropframeFlag flag);
KELVONCLIP_API std::uint32_t timecode_fields_per_day(VideoFrequency frequency);
/// @}

/// @{
/// The field count of a label; without a flag, that of defaultDropframeFlag counts. No component is checked against its
/// range: 75 minutes are simply multiplied in, and labels that drop-frame counting skips are not refused.
/// 0 for an unknown frequency and, at 59.94Hz and 29.97Hz, for an unknown flag.
KELVONCLIP_API std::uint32_t timecode_numfields(VideoFrequency frequency, DropframeFlag flag, unsigned int days,
                                                unsigned int hours, unsigned int minutes, unsigned int seconds,
                                                unsigned int frames, bool f2);
KELVONCLIP_API std::uint32_t timecode_numfields(VideoFrequency frequency, unsigned int days, unsigned int hours,
                                                unsigned int minutes, unsigned int seconds, unsigned int frames,
                                                bool f2);
/// @}

/// The components of a label. Frames are pairs of fields: see the file's comment for 25Hz.
struct TimecodeLabel {
    unsigned int days;     ///< a count may exceed a day
    unsigned int hours;    ///< 0 to 23
    unsigned int minutes;  ///< 0 to 59
    unsigned int seconds;  ///< 0 to 59; 60 in the first frame of some minutes at 29.97Hz drop-frame
    unsigned int frames;   ///< 0 to 29
    bool f2;               ///< field 2
};

/// The label of a field count, in one call: what a KTimecode of these arguments answers.
/// @param frequency  of the count
/// @param flag       how labels are counted
/// @param nfields    fields since midnight of day 0
/// @param label      receives the components; all 0 when the result is false
/// @return false for a frequency or a flag that is not valid, and if `label` is null
/// Threads: any.
KELVONCLIP_API bool timecode_label(VideoFrequency frequency, DropframeFlag flag, unsigned int nfields,
                                   TimecodeLabel* label);

/// Room for the text of every field count, the terminating zero included: 2071+23.59.59.11 is one of the longest.
constexpr unsigned int TIMECODE_TEXT_SIZE = 17;

/// The label of a field count as text, in the caller's buffer: what KTimecode::toString gives, without an allocation.
/// @param frequency  of the count
/// @param flag       how labels are counted
/// @param nfields    fields since midnight of day 0
/// @param count      components to show at least, as in KTimecode::toString; 4 gives 10.00.00.00 in any case
/// @param text       receives the text and a terminating zero; "(invalid)" for a frequency or a flag that is not valid.
///                   If it does not fit, receives the empty text. Untouched if `size` is 0
/// @param size       wide characters that `text` has room for; TIMECODE_TEXT_SIZE is always enough
/// @return length of the whole text, without the terminating zero, whether it fits or not
/// Threads: any.
KELVONCLIP_API unsigned int timecode_text(VideoFrequency frequency, DropframeFlag flag, unsigned int nfields,
                                          unsigned int count, wchar_t* text, unsigned int size);

/// One timecode, or "undefined".
///
/// A timecode is defined only while its frequency and its flag are valid; whatever would break that leaves it
/// undefined. The label is worked out at the first question about it and kept.
///
/// Threads: a plain value without locks. Questions fill the kept label, so even reading one object is for one thread at
/// a time; copies are independent.
class KTimecode {
  public:
    /// Undefined.
    KELVONCLIP_API KTimecode();

    /// @{
    /// Copies: timecode and kept label.
    KELVONCLIP_API KTimecode(KTimecode const& other);
    KELVONCLIP_API KTimecode& operator=(KTimecode const& other);
    /// @}

    /// @{
    /// From a field count, which is kept as given and may exceed a day. Without a flag: defaultDropframeFlag.
    KELVONCLIP_API KTimecode(VideoFrequency frequency, unsigned int nfields);
    KELVONCLIP_API KTimecode(VideoFrequency frequency, DropframeFlag flag, unsigned int nfields);
    /// @}

    /// @{
    /// From a label, on day 0; the ranges of the components are not checked.
    KELVONCLIP_API KTimecode(VideoFrequency frequency, unsigned int hours, unsigned int minutes, unsigned int seconds,
                             unsigned int frames, bool f2);
    KELVONCLIP_API KTimecode(VideoFrequency frequency, DropframeFlag flag, unsigned int hours, unsigned int minutes,
                             unsigned int seconds, unsigned int frames, bool f2);
    /// @}

    /// @{
    /// From text: hours, minutes, seconds and frames, of which the first ones may be missing, between separators. The
    /// first of , . : ; in the text is the separator; ':' and ';' stand for field 2. Within a component everything but
    /// decimal digits is skipped, and its value wraps at 32 bits. A drop-frame label that does not exist is taken for
    /// frame 2 of its second. Text without a separator gives an undefined timecode.
    KELVONCLIP_API KTimecode(VideoFrequency frequency, std::wstring const& text);
    KELVONCLIP_API KTimecode(VideoFrequency frequency, DropframeFlag flag, std::wstring const& text);
    /// @}

    /// From four bytes of plain binary (not decimal) hours, minutes, seconds and frames with flag bits: bit 7 of the
    /// hours, or at 60 and 59.94Hz of the seconds, is field 2; bit 6 of the frames is drop-frame where the rate has it.
    /// Bit 7 of the minutes and of the frames has to be 0. Undefined for a null pointer.
    KELVONCLIP_API static KTimecode from_sony(VideoFrequency frequency, void const* bytes);

    /// From the first eight bytes of a unit of a timecode track (docs/format.md, "Timecode unit"), of which the low
    /// halves, two to a byte, low half first, are the four bytes of from_sony.
    /// Undefined when all 64 bits are set, and for a null pointer.
    KELVONCLIP_API static KTimecode from_tc64(VideoFrequency frequency, void const* bytes);

    /// The inverse of from_sony: writes four bytes. There is no place for days: the label is that of the time of day.
    /// False, with nothing written, when undefined and for a null pointer.
    KELVONCLIP_API bool to_sony(void* bytes) const;

    /// The inverse of from_tc64: writes eight bytes, the high halves as 0. An undefined timecode becomes eight bytes FF
    /// hexadecimal, which is a unit without a timecode. False, with nothing written, for a null pointer.
    KELVONCLIP_API bool to_tc64(void* bytes) const;

    /// Whether this is a timecode at all.
    KELVONCLIP_API bool is_defined() const;
    /// The field count; 0 when undefined.
    KELVONCLIP_INLINE_API unsigned int get_nfields() const { return defined ? count : 0; }
    /// `none` when undefined.
    KELVONCLIP_API VideoFrequency get_frequency() const;

    /// @{
    /// The components of the label; all 0 when undefined. Frames are pairs of fields: see the file's comment for 25Hz.
    KELVONCLIP_INLINE_API unsigned int get_days() const { return part(days); }
    KELVONCLIP_INLINE_API unsigned int get_hours() const { return part(hours); }
    KELVONCLIP_INLINE_API unsigned int get_minutes() const { return part(minutes); }
    KELVONCLIP_INLINE_API unsigned int get_seconds() const { return part(seconds); }
    KELVONCLIP_INLINE_API unsigned int get_frames() const { return part(frames); }
    /// @}

    /// Whether the timecode is on field 2; false when undefined. Until another question has worked out the label this
    /// is the last bit of the count. Only at 25Hz that is not always the label's field: ask for the frames first there.
    KELVONCLIP_API bool get_f2() const;

    /// The flag; `none` when undefined.
    KELVONCLIP_API DropframeFlag get_df() const;
    /// Whether the flag is `df`.
    KELVONCLIP_API bool is_df() const;
    /// The negation of is_df, so true when undefined too.
    KELVONCLIP_API bool is_ndf() const;

    /// @{
    /// Fields in a unit of time at this frequency and flag; 0 when undefined.
    KELVONCLIP_API unsigned int get_fields_per_second() const;
    KELVONCLIP_API unsigned int get_fields_per_minute() const;
    KELVONCLIP_API unsigned int get_fields_per_10minutes() const;
    KELVONCLIP_API unsigned int get_fields_per_hour() const;
    KELVONCLIP_API unsigned int get_fields_per_day() const;
    /// @}

    /// @{
    /// Become what the constructor of the same arguments makes.
    KELVONCLIP_API void set(VideoFrequency frequency, unsigned int nfields);
    KELVONCLIP_API void set(VideoFrequency frequency, DropframeFlag flag, unsigned int nfields);
    /// @}

    /// Changes the field count; nothing when undefined.
    KELVONCLIP_API void set_nfields(unsigned int nfields);
    /// Makes the timecode undefined.
    KELVONCLIP_API void set_undefined();

    /// @{
    /// Changes the flag where the rate has drop-frame, and keeps the field count. A label that was already worked out
    /// stays until something else changes the timecode. A flag that is not valid changes nothing and puts an assertion
    /// line on the standard error stream.
    KELVONCLIP_API void set_df(DropframeFlag flag);
    KELVONCLIP_API void set_df();
    KELVONCLIP_API void set_ndf();
    /// @}

    /// @{
    /// Compare by field count, whatever the frequencies and flags. An undefined timecode is greater than every defined
    /// one and equal to another undefined one.
    KELVONCLIP_API bool operator==(KTimecode const& other) const;
    KELVONCLIP_API bool operator!=(KTimecode const& other) const;
    KELVONCLIP_API bool operator<(KTimecode const& other) const;
    KELVONCLIP_API bool operator<=(KTimecode const& other) const;
    KELVONCLIP_API bool operator>(KTimecode const& other) const;
    KELVONCLIP_API bool operator>=(KTimecode const& other) const;
    /// @}

    /// @{
    /// -1, 0 or 1 in the same order.
    KELVONCLIP_API int cmp(KTimecode const& other) const;
    KELVONCLIP_API static int cmp(KTimecode const& a, KTimecode const& b);
    /// @}

    /// @{
    /// The same round the clock: days are not looked at and the shorter way decides, so that midnight comes one field
    /// after the last field of the day. Exactly half a day apart gives 1.
    KELVONCLIP_API int cmp24(KTimecode const& other) const;
    KELVONCLIP_API static int cmp24(KTimecode const& a, KTimecode const& b);
    /// @}

    /// @{
    /// Add and subtract fields. All leave an undefined timecode undefined. Sums wrap at 32 bits; differences stop at 0.
    /// An undefined operand makes the result undefined.
    KELVONCLIP_API KTimecode& operator++();
    KELVONCLIP_API KTimecode& operator+=(unsigned int nfields);
    KELVONCLIP_API KTimecode& operator+=(KTimecode const& other);
    KELVONCLIP_API KTimecode& operator-=(unsigned int nfields);
    KELVONCLIP_API KTimecode& operator-=(KTimecode const& other);
    KELVONCLIP_API KTimecode operator+(unsigned int nfields) const;
    KELVONCLIP_API KTimecode operator+(KTimecode const& other) const;
    KELVONCLIP_API KTimecode operator-(unsigned int nfields) const;
    KELVONCLIP_API KTimecode operator-(KTimecode const& other) const;
    /// @}

    /// @{
    /// Adds and, when `wrap` is set, drops the days of the result. Whether `other` is defined is not looked at.
    KELVONCLIP_API void add(unsigned int nfields, bool wrap);
    KELVONCLIP_API void add(KTimecode const& other, bool wrap);
    /// @}

    /// @{
    /// Subtracts. When more is taken than is there, the result passes midnight backwards if `wrap` is set, and wraps at
    /// 32 bits (unlike the operators, which stop at 0) if it is not. Whether `other` is defined is not looked at.
    KELVONCLIP_API void subtract(unsigned int nfields, bool wrap);
    KELVONCLIP_API void subtract(KTimecode const& other, bool wrap);
    /// @}

    /// @{
    /// add and subtract with `wrap`.
    KELVONCLIP_API void add24(unsigned int nfields);
    KELVONCLIP_API void add24(KTimecode const& other);
    KELVONCLIP_API void sub24(unsigned int nfields);
    KELVONCLIP_API void sub24(KTimecode const& other);
    KELVONCLIP_API static KTimecode add24(KTimecode const& a, unsigned int nfields);
    KELVONCLIP_API static KTimecode add24(KTimecode const& a, KTimecode const& b);
    KELVONCLIP_API static KTimecode sub24(KTimecode const& a, unsigned int nfields);
    KELVONCLIP_API static KTimecode sub24(KTimecode const& a, KTimecode const& b);
    /// @}

    /// Drops the days.
    KELVONCLIP_API void wrap24();
    /// A copy without days.
    KELVONCLIP_API KTimecode get24() const;
    /// 24 hours at this frequency and flag. Without meaning for an undefined timecode.
    KELVONCLIP_API KTimecode t24() const;

    /// Whether start <= this < start + length; false when any of the three is undefined.
    KELVONCLIP_API bool is_inrange(KTimecode const& start, KTimecode const& length) const;
    /// The same round the clock: a range may pass midnight. False when this timecode has days.
    KELVONCLIP_API bool is_inrange24(KTimecode start, KTimecode length) const;

    /// @{
    /// Moves back to field 1, or on to field 2, of the same frame. The kept label follows in its field alone.
    KELVONCLIP_API void force_f1();
    KELVONCLIP_API void force_f2();
    KELVONCLIP_API void force_field(bool f2);
    /// @}

    /// The label as text, "(invalid)" when undefined: at least `count` of the components frames, seconds, minutes,
    /// hours and days (1 to 5), and more when larger ones are not 0. The separator is '.' on field 1 and ':' on field
    /// 2, with drop-frame ',' and ';'; days end in '+': "1+05.00.00.00", "01:02:03:04". Empty when memory runs out.
    KELVONCLIP_API std::wstring toString(unsigned int count) const;

    /// Works out the label unless it is kept already. Called by every question that needs it.
    KELVONCLIP_API void cache_validate() const;

  private:
    // A component of the label, which is worked out if it is not kept.
    std::uint32_t const& part(std::uint32_t const& component) const {
        if (!defined || !cache_valid) cache_validate();
        return component;
    }
    void revalidate(unsigned int nfields);
    void parse(VideoFrequency at, DropframeFlag wanted, std::wstring const& text);
    bool on_field_2() const;

    // The order and the natural alignment of the fields are part of the interface: 48 bytes on both hosts.
    bool defined = false;  // if not, nothing below means anything
    VideoFrequency frequency = VideoFrequency::none;
    DropframeFlag flag = DropframeFlag::none;
    std::uint32_t count = 0;  // fields since midnight of day 0
    // The label of `count`, while cache_valid.
    mutable bool cache_valid = false;
    mutable std::uint32_t days = 0;
    mutable std::uint32_t hours = 0;
    mutable std::uint32_t minutes = 0;
    mutable std::uint32_t seconds = 0;
    mutable std::uint32_t field_in_second = 0;
    mutable std::uint32_t frames = 0;  // field_in_second / 2
    mutable bool f2 = false;           // field_in_second % 2
};
static_assert(sizeof(KTimecode) == 48, "callers on either host lay it out alike");

}  // namespace KelvonClip
