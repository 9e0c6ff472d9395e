/// @file
/// Video standards: what they are called, how large their pictures are, how fast they run.
///
/// Five enumerations describe a clip's picture format. Their numbers are part of the interface and never change; clip
/// headers hold the text of the standard. 0 (`none`) means unknown everywhere; it has no text and is not valid. Every
/// function here is defined for every 32-bit value: a value that is not valid gets the neutral result named with the
/// function. The text of a value stands beside it in quotes.
///
/// Threads: all functions may be called from any thread at any time.
/// Source: docs/standards.md, "Video standards".
#pragma once

#include <cstdint>

#include <kelvonclip/export.h>

namespace KelvonClip {

/// Whether timecode labels are skipped so that they keep pace with the clock.
enum class DropframeFlag : std::uint32_t {
    none = 0,  ///< unknown
    df = 1,    ///< drop-frame, "df"
    ndf = 2,   ///< non-drop-frame, "ndf"
};

/// Fields per second of an interlaced raster, frames per second of a progressive one.
enum class VideoFrequency : std::uint32_t {
    none = 0,     ///< unknown
    f60 = 1,      ///< "60Hz"
    f59_94 = 2,   ///< "59.94Hz", 60000/1001
    f50 = 3,      ///< "50Hz"
    f48 = 4,      ///< "48Hz"
    f47_95 = 5,   ///< "47.95Hz", 48000/1001
    f30 = 6,      ///< "30Hz"
    f29_97 = 7,   ///< "29.97Hz", 30000/1001
    f25 = 8,      ///< "25Hz"
    f24 = 9,      ///< "24Hz"
    f23_98 = 10,  ///< "23.98Hz", 24000/1001
};

/// The raster: width, height and scan.
enum class VideoResolution : std::uint32_t {
    none = 0,      ///< unknown
    r4K = 1,       ///< "4K", 3840 x 2160 pixels, progressive
    r1080p = 2,    ///< "1080p", 1920 x 1080, progressive
    r1080i = 3,    ///< "1080i", 1920 x 1080, interlaced
    r1080psf = 4,  ///< "1080psf", 1920 x 1080, progressive pictures sent as two segments: treated as interlaced
    r720p = 5,     ///< "720p", 1280 x 720, progressive
    r625i = 6,     ///< "625i", 720 x 576, interlaced
    r525i = 7,     ///< "525i", 720 x 486, interlaced
};

/// A frequency rounded to a whole number.
enum class VideoRoughFrequency : std::uint32_t {
    none = 0,  ///< unknown
    f60 = 1,   ///< 60 a second (60, 59.94)
    f50 = 2,   ///< 50 a second
    f48 = 3,   ///< 48 a second (48, 47.95)
    f30 = 4,   ///< 30 a second (30, 29.97)
    f25 = 5,   ///< 25 a second
    f24 = 6,   ///< 24 a second (24, 23.98)
};

/// A raster at a frequency.
enum class VideoStandard : std::uint32_t {
    none = 0,             ///< unknown
    s4K_60 = 1,           ///< "4K 60Hz"
    s4K_59_94 = 2,        ///< "4K 59.94Hz"
    s4K_50 = 3,           ///< "4K 50Hz"
    s4K_30 = 4,           ///< "4K 30Hz"
    s4K_29_97 = 5,        ///< "4K 29.97Hz"
    s4K_25 = 6,           ///< "4K 25Hz"
    s4K_24 = 7,           ///< "4K 24Hz"
    s4K_23_98 = 8,        ///< "4K 23.98Hz"
    s1080p_60 = 9,        ///< "1080p 60Hz"
    s1080p_59_94 = 10,    ///< "1080p 59.94Hz"
    s1080p_50 = 11,       ///< "1080p 50Hz"
    s1080p_30 = 12,       ///< "1080p 30Hz"
    s1080p_29_97 = 13,    ///< "1080p 29.97Hz"
    s1080p_25 = 14,       ///< "1080p 25Hz"
    s1080p_24 = 15,       ///< "1080p 24Hz"
    s1080p_23_98 = 16,    ///< "1080p 23.98Hz"
    s1080psf_23_98 = 17,  ///< "1080psf 23.98Hz"
    // KEEP: 59.94 before 60, the reverse of the other rasters
    s1080i_59_94 = 18,  ///< "1080i 59.94Hz"
    s1080i_60 = 19,     ///< "1080i 60Hz"
    s1080i_50 = 20,     ///< "1080i 50Hz"
    s1080i_48 = 21,     ///< "1080i 48Hz"
    s1080i_47_95 = 22,  ///< "1080i 47.95Hz"
    s720p_60 = 23,      ///< "720p 60Hz"
    s720p_59_94 = 24,   ///< "720p 59.94Hz"
    s720p_50 = 25,      ///< "720p 50Hz"
    s625i_50 = 26,      ///< "625i 50Hz"
    s525i_59_94 = 27,   ///< "525i 59.94Hz"
};

/// @{
/// Sets the value to the first valid one (1) and returns true. With getnext it visits all valid values in rising order:
/// @code
/// std::vector<VideoStandard> standardsAt(VideoFrequency frequency) {
///     std::vector<VideoStandard> found;
///     VideoStandard standard{};
///     for (bool more = getfirst(standard); more; more = getnext(standard))
///         if (toVideoFrequency(standard) == frequency) found.push_back(standard);
///     return found;
/// }
/// @endcode
KELVONCLIP_API bool getfirst(DropframeFlag& value);
KELVONCLIP_API bool getfirst(VideoFrequency& value);
KELVONCLIP_API bool getfirst(VideoResolution& value);
KELVONCLIP_API bool getfirst(VideoRoughFrequency& value);
KELVONCLIP_API bool getfirst(VideoStandard& value);
/// @}

/// @{
/// Moves to the next valid value and returns true; at the last value, and for one that is not valid, returns false and
/// leaves the value unchanged.
KELVONCLIP_API bool getnext(DropframeFlag& value);
KELVONCLIP_API bool getnext(VideoFrequency& value);
KELVONCLIP_API bool getnext(VideoResolution& value);
KELVONCLIP_API bool getnext(VideoRoughFrequency& value);
KELVONCLIP_API bool getnext(VideoStandard& value);
/// @}

/// @{
/// Whether the value is one of the enumeration's, `none` excluded.
KELVONCLIP_API bool isValid(DropframeFlag value);
KELVONCLIP_API bool isValid(VideoFrequency value);
KELVONCLIP_API bool isValid(VideoResolution value);
KELVONCLIP_API bool isValid(VideoRoughFrequency value);
KELVONCLIP_API bool isValid(VideoStandard value);
/// @}

/// @{
/// Pixels in a line; 0 when unknown.
KELVONCLIP_API std::uint32_t width(VideoResolution resolution);
KELVONCLIP_API std::uint32_t width(VideoStandard standard);
/// @}

/// @{
/// Lines in a frame; 0 when unknown.
KELVONCLIP_API std::uint32_t frame_height(VideoResolution resolution);
KELVONCLIP_API std::uint32_t frame_height(VideoStandard standard);
/// @}

/// @{
/// Lines in a field: half of the frame's for interlaced rasters, all of them for progressive ones; 0 when unknown.
KELVONCLIP_API std::uint32_t field_height(VideoResolution resolution);
KELVONCLIP_API std::uint32_t field_height(VideoStandard standard);
/// @}

/// @{
/// `width` times `frame_height`.
KELVONCLIP_API std::uint32_t pixels_per_frame(VideoResolution resolution);
KELVONCLIP_API std::uint32_t pixels_per_frame(VideoStandard standard);
/// @}

/// @{
/// `width` times `field_height`.
KELVONCLIP_API std::uint32_t pixels_per_field(VideoResolution resolution);
KELVONCLIP_API std::uint32_t pixels_per_field(VideoStandard standard);
/// @}

/// @{
/// Whether a frame is sent as two fields, segmented frames included. True for whatever is not a progressive raster,
/// unknown values included.
KELVONCLIP_API bool isInterlaced(VideoResolution resolution);
KELVONCLIP_API bool isInterlaced(VideoStandard standard);
/// @}

/// True for the progressive rasters; false when unknown.
KELVONCLIP_API bool isProgressive(VideoResolution resolution);
/// The negation of isInterlaced.
KELVONCLIP_API bool isProgressive(VideoStandard standard);

/// @{
/// 720 lines and more; false when unknown.
KELVONCLIP_API bool isHighDefinition(VideoResolution resolution);
KELVONCLIP_API bool isHighDefinition(VideoStandard standard);
/// @}

/// @{
/// 525 and 625 lines; false when unknown.
KELVONCLIP_API bool isStandardDefinition(VideoResolution resolution);
KELVONCLIP_API bool isStandardDefinition(VideoStandard standard);
/// @}

/// @{
/// Whether the frame's top line belongs to the first field. True for all but 625i, unknown values included.
KELVONCLIP_API bool top_field_is_f1(VideoResolution resolution);
KELVONCLIP_API bool top_field_is_f1(VideoStandard standard);
/// @}

/// @{
/// Whether timecode at this rate may be drop-frame: 59.94Hz and 29.97Hz alone.
KELVONCLIP_API bool hasDropframe(VideoFrequency frequency);
KELVONCLIP_API bool hasDropframe(VideoStandard standard);
/// @}

/// @{
/// `df` where drop-frame is possible, else `ndf`, unknown values included.
KELVONCLIP_API DropframeFlag defaultDropframeFlag(VideoFrequency frequency);
KELVONCLIP_API DropframeFlag defaultDropframeFlag(VideoStandard standard);
/// @}

/// @{
/// The flag that a timecode of the rate gets when a caller asks for `flag`: `df` becomes `ndf` at a rate without
/// drop-frame; anything but `df` and `ndf` becomes `none`.
KELVONCLIP_API DropframeFlag dropframeByVideoFrequency(VideoFrequency frequency, DropframeFlag flag);
KELVONCLIP_API DropframeFlag dropframeByVideoStandard(VideoStandard standard, DropframeFlag flag);
/// @}

/// @{
/// The frequency rounded to a whole number; `none` when unknown.
KELVONCLIP_API VideoRoughFrequency toVideoRoughFrequency(VideoFrequency frequency);
KELVONCLIP_API VideoRoughFrequency toVideoRoughFrequency(VideoStandard standard);
/// @}

/// @{
/// The rounded frequency as a number; 60 when unknown.
KELVONCLIP_API std::uint32_t RoughFieldsPerSecond(VideoRoughFrequency frequency);
KELVONCLIP_API std::uint32_t RoughFieldsPerSecond(VideoFrequency frequency);
KELVONCLIP_API std::uint32_t RoughFieldsPerSecond(VideoStandard standard);
/// @}

/// @{
/// The exact frequency as a fraction in lowest terms, a second: 60000/1001 for 59.94Hz, 25/1 for 25Hz. The numerator is
/// the fields of `denominator` seconds; the denominator is 1 or 1001. Either pointer may be null. False for an unknown
/// value; then the fraction is 0/1.
KELVONCLIP_API bool toRatio(VideoFrequency frequency, std::uint32_t* numerator, std::uint32_t* denominator);
KELVONCLIP_API bool toRatio(VideoStandard standard, std::uint32_t* numerator, std::uint32_t* denominator);
/// @}

/// Bytes that one unit of one audio subchannel occupies: 4096 from 47.95Hz up, 8192 below. For an unknown frequency an
/// assertion line goes to the standard error stream and the result is 8192.
KELVONCLIP_API std::uint32_t toAudioSize(VideoFrequency frequency);

/// @{
/// The two halves of a standard; `none` when it is unknown.
KELVONCLIP_API VideoFrequency toVideoFrequency(VideoStandard standard);
KELVONCLIP_API VideoResolution toVideoResolution(VideoStandard standard);
/// @}

/// The standard of this raster and frequency; `none` when there is none, as for 720p at 25Hz.
KELVONCLIP_API VideoStandard toVideoStandard(VideoResolution resolution, VideoFrequency frequency);

/// @{
/// The text of a value, such as "ndf", "59.94Hz", "1080psf" and "1080psf 23.98Hz"; null for a value without one. That
/// of a standard is its raster's, a space and its frequency's.
/// The text stays valid until the library is unloaded and is never freed by the caller; equal texts have one address.
KELVONCLIP_API wchar_t const* toString(DropframeFlag flag);
KELVONCLIP_API wchar_t const* toString(VideoFrequency frequency);
KELVONCLIP_API wchar_t const* toString(VideoResolution resolution);
KELVONCLIP_API wchar_t const* toString(VideoStandard standard);
/// @}

/// The same for a rounded frequency: "60Hz", "50Hz", "48Hz", "30Hz", "25Hz" and "24Hz". track.h has the texts of what a
/// track holds.
KELVONCLIP_API wchar_t const* toString(VideoRoughFrequency frequency);

/// @{
/// The value with exactly this text; `none` for any other text and for null. The valid texts are those beside the
/// enumerators; case and white space count, and there are no abbreviations ("1080i50", "25p" and "PAL" mean nothing).
KELVONCLIP_API VideoFrequency toVideoFrequency(wchar_t const* text);
KELVONCLIP_API VideoResolution toVideoResolution(wchar_t const* text);
KELVONCLIP_API VideoStandard toVideoStandard(wchar_t const* text);
/// @}

/// The flag whose toString gave this very pointer; `none` for any other pointer, a caller's own "df" included.
KELVONCLIP_API DropframeFlag toDropframeFlag(wchar_t const* text);

}  // namespace KelvonClip
