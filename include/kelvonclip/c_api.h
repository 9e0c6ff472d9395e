/// @file
/// The whole interface for C and for languages that call C. Every exported function is here under a name that begins
/// with `kclip_`; what it does, its arguments, its messages and its threads are described at the C++ function of the
/// same name, in the header that each group names.
///
/// **Text** is UTF-8, in and out, on both hosts. A function that can fail returns null on success, else a message;
/// texts that are returned stay valid until the library is unloaded and are never freed by the caller; equal texts are
/// the identical pointer. Bytes that are not UTF-8 give "bad conversion", or the neutral value where there is no
/// message.
///
/// **Enumerations** are 32-bit numbers, those of the C++ enumerations; `enum` constants name the usual ones.
///
/// **Timecode** is a plain struct: see kclip_timecode.
///
/// **Callers.** C11 and later, and C++. The names are undecorated on both hosts and for every compiler.
///
/// Source: docs/architecture.md.
#pragma once

#include <stdbool.h>
#include <stdint.h>

#include <kelvonclip/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/// A timecode: fields since midnight of day 0 at a frequency, with labels that are drop-frame or not. It is defined if
/// frequency and flag are valid; a struct of zeros is undefined.
typedef struct kclip_timecode {
    uint32_t frequency;  ///< number of a VideoFrequency
    uint32_t flag;       ///< KCLIP_DF or KCLIP_NDF
    uint32_t fields;     ///< may exceed a day
} kclip_timecode;

/// The label of a timecode.
typedef struct kclip_label {
    uint32_t days;     ///< whole days
    uint32_t hours;    ///< 0 to 23
    uint32_t minutes;  ///< 0 to 59
    uint32_t seconds;  ///< 0 to 59
    uint32_t frames;   ///< pairs of fields
    uint32_t field_2;  ///< 1 on field 2, else 0
} kclip_label;

/// A track format at a video standard, as FormatInfo of track_format.h.
typedef struct kclip_format {
    uint32_t category;         ///< what its tracks hold
    uint32_t video_type;       ///< how pictures are coded
    uint32_t audio_type;       ///< how sound is coded
    uint32_t avc_flavor;       ///< the family of an AVC format
    uint32_t avc_class;        ///< Mbit/s of an AVC format
    uint32_t subchannels;      ///< of an audio format
    uint32_t unit_size;        ///< bytes of a unit
    uint32_t fields_per_unit;  ///< fields that a unit covers
    uint32_t luma_size;        ///< bytes of luma in a JPEG 2000 video unit
    uint32_t chroma_size;      ///< bytes of chroma in a JPEG 2000 video unit
    uint32_t creatable;        ///< 1: create_finish can make tracks of it
} kclip_format;

/// Consecutive units of a track and where they are in memory, as UnitRun of units.h.
typedef struct kclip_unit_run {
    uint32_t track;   ///< whose units they are
    uint32_t first;   ///< number of the first one
    uint32_t count;   ///< of units
    uint32_t stride;  ///< bytes from one unit to the next
    uint32_t size;    ///< bytes of each unit to write
    void* buffer;     ///< the first unit
} kclip_unit_run;

/// Numbers of enumerations. Standards, frequencies and rasters are best named by their texts:
/// kclip_standard_from_text("1080i 50Hz").
enum {
    KCLIP_DF = 1,   ///< drop-frame
    KCLIP_NDF = 2,  ///< non-drop-frame

    KCLIP_VIDEO = 1,     ///< category: pictures
    KCLIP_KEY = 2,       ///< category: the alpha signal of a video track
    KCLIP_AUDIO = 3,     ///< category: sound
    KCLIP_TIMECODE = 4,  ///< category: timecode

    KCLIP_J2K = 1,  ///< video type: JPEG 2000
    KCLIP_DV = 2,   ///< video type: DV
    KCLIP_AVC = 3,  ///< video type: AVC

    KCLIP_HEMLOCK = 1,  ///< audio type

    KCLIP_XAVC = 1,       ///< AVC flavor
    KCLIP_AVC_INTRA = 2,  ///< AVC flavor

    KCLIP_UUID = 1,       ///< clip text: the identifier
    KCLIP_PARENT = 2,     ///< clip text: the parent of a child clip
    KCLIP_PROJECT = 3,    ///< clip text, can be set
    KCLIP_TITLE = 4,      ///< clip text, can be set
    KCLIP_CREATOR = 5,    ///< clip text, can be set
    KCLIP_FILE_NAME = 6,  ///< clip text: the name under which the clip was opened

    KCLIP_ZERO_BASED = 1,           ///< timecode source
    KCLIP_STRIPED = 2,              ///< timecode source
    KCLIP_TC0_STRIPED = 3,          ///< timecode source
    KCLIP_TIMECODE_FROM_TRACK = 4,  ///< timecode source
};

/// @{
/// Opening and closing: see kelvon_clip.h. Names are UTF-8 on both hosts; "bad conversion" for bytes that are not
/// UTF-8.
KELVONCLIP_API char const* kclip_clip_open(char const* file_name, uint32_t* clip);
KELVONCLIP_API char const* kclip_clip_open_rw(char const* file_name, uint32_t* clip);
KELVONCLIP_API void kclip_clip_close(uint32_t clip);
KELVONCLIP_API char const* kclip_clip_close_checked(uint32_t clip);
KELVONCLIP_API char const* kclip_clip_checkpoint(uint32_t clip);
KELVONCLIP_API char const* kclip_clip_checkpoint_every(uint32_t clip, uint32_t milliseconds, bool durable);
KELVONCLIP_API char const* kclip_clip_open_tracks(uint32_t clip);
KELVONCLIP_API char const* kclip_clip_refresh(uint32_t clip);
KELVONCLIP_API char const* kclip_clip_share(uint32_t clip);
/// @}

/// @{
/// Queries about a clip: see kelvon_clip.h. Enumerations are their numbers.
KELVONCLIP_API uint64_t kclip_clip_unreplayed_bytes(uint32_t clip);
KELVONCLIP_API bool kclip_clip_get_is_child_clip(uint32_t clip);
KELVONCLIP_API uint64_t kclip_clip_get_last_loaded(uint32_t clip);
KELVONCLIP_API uint64_t kclip_clip_get_last_unloaded(uint32_t clip);
KELVONCLIP_API uint64_t kclip_clip_get_last_played(uint32_t clip);
KELVONCLIP_API uint64_t kclip_clip_get_last_meta_edit(uint32_t clip);
KELVONCLIP_API uint64_t kclip_clip_get_last_content_edit(uint32_t clip);
KELVONCLIP_API uint32_t kclip_clip_get_length(uint32_t clip);
KELVONCLIP_API char const* kclip_clip_get_timecode(uint32_t clip, uint32_t* timecode, bool* drop_frame);
KELVONCLIP_API bool kclip_clip_timecode_valid(uint32_t clip);
KELVONCLIP_API uint32_t kclip_clip_get_timecode_source(uint32_t clip);
KELVONCLIP_API uint32_t kclip_clip_get_video_standard(uint32_t clip);
KELVONCLIP_API bool kclip_clip_is_writable(uint32_t clip);
KELVONCLIP_API uint32_t kclip_clip_track_count(uint32_t clip);
KELVONCLIP_API uint32_t kclip_clip_get_track(uint32_t clip, uint32_t index);
KELVONCLIP_API uint32_t kclip_clip_get_trim_start(uint32_t clip);
KELVONCLIP_API uint32_t kclip_clip_get_trim_end(uint32_t clip);
KELVONCLIP_API uint32_t kclip_clip_meta_count(uint32_t clip);
/// @}

/// @{
/// Texts of a clip, written to the caller's buffer with a terminating zero, cut off between characters where they don't
/// fit. Each returns the bytes of the whole text without the zero; 0 for a text that is not there, for an unknown
/// handle and when memory runs out. `buffer` may be null if `size`, in bytes, is 0.
KELVONCLIP_API uint32_t kclip_clip_get_text(uint32_t clip, uint32_t which, char* buffer, uint32_t size);
KELVONCLIP_API uint32_t kclip_clip_get_meta_name(uint32_t clip, uint32_t index, char* buffer, uint32_t size);
KELVONCLIP_API uint32_t kclip_clip_get_meta(uint32_t clip, char const* name, char* buffer, uint32_t size);
/// @}

/// @{
/// Changing the header: see kelvon_clip.h. Null as the value removes an entry of the `Meta` list, null as a text
/// removes the text.
KELVONCLIP_API char const* kclip_clip_set_text(uint32_t clip, uint32_t which, char const* text);
KELVONCLIP_API char const* kclip_clip_set_meta(uint32_t clip, char const* name, char const* value);
KELVONCLIP_API char const* kclip_clip_set_trims(uint32_t clip, uint32_t start, uint32_t end);
/// @}

/// @{
/// Creating a clip: see kelvon_clip.h. `standard` is the number of a VideoStandard.
KELVONCLIP_API char const* kclip_create_begin(char const* file_name, uint32_t standard, uint32_t* creation);
KELVONCLIP_API char const* kclip_cfg_track_count_video(uint32_t creation, uint32_t count);
KELVONCLIP_API char const* kclip_cfg_track_count_key(uint32_t creation, uint32_t count);
KELVONCLIP_API char const* kclip_cfg_track_count_audio(uint32_t creation, uint32_t count);
KELVONCLIP_API char const* kclip_cfg_track_timecode(uint32_t creation);
KELVONCLIP_API char const* kclip_cfg_video_avci(uint32_t creation);
KELVONCLIP_API char const* kclip_cfg_video_dv(uint32_t creation);
KELVONCLIP_API char const* kclip_cfg_video_j2k(uint32_t creation, uint32_t luma_size, uint32_t chroma_size,
                                               uint32_t key_size);
KELVONCLIP_API char const* kclip_cfg_audio_hemlock(uint32_t creation, uint32_t subchannels);
KELVONCLIP_API char const* kclip_cfg_clip_timecode2(uint32_t creation, uint32_t timecode_offset, bool drop_frame,
                                                    bool timecode_track, bool tc0_striped);
KELVONCLIP_API char const* kclip_cfg_clip_timecode(uint32_t clip, uint32_t creation);
KELVONCLIP_API char const* kclip_create_finish(uint32_t creation, uint32_t* clip);
KELVONCLIP_API char const* kclip_create_cancel(uint32_t creation);
/// @}

/// @{
/// Tracks and their units: see track.h. Enumerations are their numbers.
KELVONCLIP_API uint32_t kclip_track_category(uint32_t track);
KELVONCLIP_API uint32_t kclip_track_video_type(uint32_t track);
KELVONCLIP_API uint32_t kclip_track_audio_type(uint32_t track);
KELVONCLIP_API uint32_t kclip_track_avc_flavor(uint32_t track);
KELVONCLIP_API uint32_t kclip_track_get_video_standard(uint32_t track);
KELVONCLIP_API uint32_t kclip_track_audio_subchannel_count(uint32_t track);
KELVONCLIP_API uint32_t kclip_track_avc_class(uint32_t track);
KELVONCLIP_API uint32_t kclip_track_j2k_video_size(uint32_t track);
KELVONCLIP_API uint32_t kclip_track_j2k_key_size(uint32_t track);
KELVONCLIP_API uint32_t kclip_track_j2k_video_luma_size(uint32_t track);
KELVONCLIP_API uint32_t kclip_track_j2k_video_chroma_size(uint32_t track);
KELVONCLIP_API uint32_t kclip_track_unit_size(uint32_t track);
KELVONCLIP_API uint32_t kclip_track_fields_per_unit(uint32_t track);
KELVONCLIP_API uint32_t kclip_track_length_in_units(uint32_t track);
KELVONCLIP_API uint32_t kclip_track_length_in_fields(uint32_t track);
KELVONCLIP_API uint32_t kclip_track_get_format_name(uint32_t track, char* buffer, uint32_t size);
KELVONCLIP_API char const* kclip_track_read(uint32_t track, uint32_t unit, void* buffer);
KELVONCLIP_API char const* kclip_track_write(uint32_t track, uint32_t unit, void const* buffer, uint32_t size);
KELVONCLIP_API char const* kclip_track_get_timecode(uint32_t track, uint32_t unit, uint32_t* timecode,
                                                    bool* drop_frame);
KELVONCLIP_API char const* kclip_track_set_timecode(uint32_t track, uint32_t unit, uint32_t timecode, bool drop_frame);
KELVONCLIP_API bool kclip_track_valid_timecode(uint32_t track, uint32_t unit);
/// @}

/// @{
/// Several units in one call, and memory for units: see units.h.
KELVONCLIP_API void* kclip_unit_buffer_alloc(uint32_t track, uint32_t count, uint32_t* stride);
KELVONCLIP_API void kclip_unit_buffer_free(void* buffer);
KELVONCLIP_API char const* kclip_track_read_units(uint32_t track, uint32_t first, uint32_t count, void* buffer,
                                                  uint32_t stride);
KELVONCLIP_API char const* kclip_clip_read_units(uint32_t clip, kclip_unit_run const* runs, uint32_t count,
                                                 uint32_t* done);
KELVONCLIP_API char const* kclip_clip_write_units(uint32_t clip, kclip_unit_run const* runs, uint32_t count,
                                                  uint32_t* done);
/// @}

/// @{
/// Track formats: see track_format.h.
KELVONCLIP_API char const* kclip_format_name(uint32_t standard, uint32_t index);
KELVONCLIP_API bool kclip_format_info(uint32_t standard, char const* name, kclip_format* info);
KELVONCLIP_API bool kclip_format_video_creatable(uint32_t standard, uint32_t video_type);
/// @}

/// @{
/// The sizes of JPEG 2000 units at a standard: see info_j2k.h.
KELVONCLIP_API uint32_t kclip_j2k_video_luma_max_size(uint32_t standard);
KELVONCLIP_API uint32_t kclip_j2k_video_luma_min_size(uint32_t standard);
KELVONCLIP_API uint32_t kclip_j2k_video_chroma_max_size(uint32_t standard);
KELVONCLIP_API uint32_t kclip_j2k_video_chroma_min_size(uint32_t standard);
KELVONCLIP_API uint32_t kclip_j2k_video_max_size(uint32_t standard);
KELVONCLIP_API uint32_t kclip_j2k_video_min_size(uint32_t standard);
KELVONCLIP_API uint32_t kclip_j2k_key_max_size(uint32_t standard);
KELVONCLIP_API uint32_t kclip_j2k_key_min_size(uint32_t standard);
/// @}

/// @{
/// Sequential audio, reading: see seq_read.h.
KELVONCLIP_API char const* kclip_seqread_begin(uint32_t track, uint32_t* reader);
KELVONCLIP_API char const* kclip_seqread_read(uint32_t reader, int32_t* const* buffers, uint32_t n);
KELVONCLIP_API char const* kclip_seqread_seek(uint32_t reader, uint64_t sample);
KELVONCLIP_API uint64_t kclip_seqread_position(uint32_t reader);
KELVONCLIP_API uint64_t kclip_seqread_samples_remaining(uint32_t reader);
KELVONCLIP_API uint32_t kclip_seqread_subchannel_count(uint32_t reader);
KELVONCLIP_API void kclip_seqread_finish(uint32_t reader);
/// @}

/// @{
/// Sequential audio, writing: see seq_write.h.
KELVONCLIP_API char const* kclip_seqwrite_begin(uint32_t track, uint32_t* writer);
KELVONCLIP_API char const* kclip_seqwrite_write(uint32_t writer, int32_t const* const* buffers, uint32_t n);
KELVONCLIP_API uint32_t kclip_seqwrite_subchannel_count(uint32_t writer);
KELVONCLIP_API char const* kclip_seqwrite_finish(uint32_t writer);
/// @}

/// @{
/// Messages and version: see message.h and version.h.
KELVONCLIP_API uint32_t kclip_message_kind(char const* message);
KELVONCLIP_API uint32_t kclip_message_with_file(char const* message, uint32_t handle, char* buffer, uint32_t size);
KELVONCLIP_API uint32_t kclip_library_version(void);
KELVONCLIP_API char const* kclip_library_version_text(void);
/// @}

/// @{
/// Walking through the valid values of an enumeration, as getfirst, getnext and isValid of kelvon_std.h do.
KELVONCLIP_API bool kclip_flag_first(uint32_t* value);
KELVONCLIP_API bool kclip_flag_next(uint32_t* value);
KELVONCLIP_API bool kclip_flag_is_valid(uint32_t value);
KELVONCLIP_API bool kclip_frequency_first(uint32_t* value);
KELVONCLIP_API bool kclip_frequency_next(uint32_t* value);
KELVONCLIP_API bool kclip_frequency_is_valid(uint32_t value);
KELVONCLIP_API bool kclip_resolution_first(uint32_t* value);
KELVONCLIP_API bool kclip_resolution_next(uint32_t* value);
KELVONCLIP_API bool kclip_resolution_is_valid(uint32_t value);
KELVONCLIP_API bool kclip_rough_frequency_first(uint32_t* value);
KELVONCLIP_API bool kclip_rough_frequency_next(uint32_t* value);
KELVONCLIP_API bool kclip_rough_frequency_is_valid(uint32_t value);
KELVONCLIP_API bool kclip_standard_first(uint32_t* value);
KELVONCLIP_API bool kclip_standard_next(uint32_t* value);
KELVONCLIP_API bool kclip_standard_is_valid(uint32_t value);
/// @}

/// @{
/// The text of a value, null for a value without one, and the value of a text, 0 for any other text and for null. Texts
/// stay valid until the library is unloaded.
KELVONCLIP_API char const* kclip_flag_to_text(uint32_t value);
KELVONCLIP_API char const* kclip_frequency_to_text(uint32_t value);
KELVONCLIP_API char const* kclip_resolution_to_text(uint32_t value);
KELVONCLIP_API char const* kclip_rough_frequency_to_text(uint32_t value);
KELVONCLIP_API char const* kclip_standard_to_text(uint32_t value);
KELVONCLIP_API char const* kclip_category_to_text(uint32_t value);
KELVONCLIP_API char const* kclip_video_type_to_text(uint32_t value);
KELVONCLIP_API char const* kclip_audio_type_to_text(uint32_t value);
KELVONCLIP_API char const* kclip_avc_flavor_to_text(uint32_t value);
KELVONCLIP_API char const* kclip_timecode_source_to_text(uint32_t value);
KELVONCLIP_API uint32_t kclip_frequency_from_text(char const* value_text);
KELVONCLIP_API uint32_t kclip_resolution_from_text(char const* value_text);
KELVONCLIP_API uint32_t kclip_standard_from_text(char const* value_text);
KELVONCLIP_API uint32_t kclip_flag_from_text(char const* value_text);
/// @}

/// @{
/// Properties of rasters and standards: see kelvon_std.h.
KELVONCLIP_API uint32_t kclip_resolution_width(uint32_t resolution);
KELVONCLIP_API uint32_t kclip_standard_width(uint32_t standard);
KELVONCLIP_API uint32_t kclip_resolution_frame_height(uint32_t resolution);
KELVONCLIP_API uint32_t kclip_standard_frame_height(uint32_t standard);
KELVONCLIP_API uint32_t kclip_resolution_field_height(uint32_t resolution);
KELVONCLIP_API uint32_t kclip_standard_field_height(uint32_t standard);
KELVONCLIP_API uint32_t kclip_resolution_pixels_per_frame(uint32_t resolution);
KELVONCLIP_API uint32_t kclip_standard_pixels_per_frame(uint32_t standard);
KELVONCLIP_API uint32_t kclip_resolution_pixels_per_field(uint32_t resolution);
KELVONCLIP_API uint32_t kclip_standard_pixels_per_field(uint32_t standard);
KELVONCLIP_API bool kclip_resolution_is_interlaced(uint32_t resolution);
KELVONCLIP_API bool kclip_standard_is_interlaced(uint32_t standard);
KELVONCLIP_API bool kclip_resolution_is_progressive(uint32_t resolution);
KELVONCLIP_API bool kclip_standard_is_progressive(uint32_t standard);
KELVONCLIP_API bool kclip_resolution_is_high_definition(uint32_t resolution);
KELVONCLIP_API bool kclip_standard_is_high_definition(uint32_t standard);
KELVONCLIP_API bool kclip_resolution_is_standard_definition(uint32_t resolution);
KELVONCLIP_API bool kclip_standard_is_standard_definition(uint32_t standard);
KELVONCLIP_API bool kclip_resolution_top_field_is_f1(uint32_t resolution);
KELVONCLIP_API bool kclip_standard_top_field_is_f1(uint32_t standard);
KELVONCLIP_API uint32_t kclip_standard_frequency(uint32_t standard);
KELVONCLIP_API uint32_t kclip_standard_resolution(uint32_t standard);
KELVONCLIP_API uint32_t kclip_standard_of(uint32_t resolution, uint32_t frequency);
/// @}

/// @{
/// Properties of rates, by the rate and by the standard: see kelvon_std.h.
KELVONCLIP_API bool kclip_frequency_has_dropframe(uint32_t frequency);
KELVONCLIP_API uint32_t kclip_frequency_default_flag(uint32_t frequency);
KELVONCLIP_API uint32_t kclip_frequency_rough_frequency(uint32_t frequency);
KELVONCLIP_API uint32_t kclip_frequency_rough_fields_per_second(uint32_t frequency);
KELVONCLIP_API uint32_t kclip_frequency_flag_for(uint32_t frequency, uint32_t flag);
KELVONCLIP_API bool kclip_frequency_ratio(uint32_t frequency, uint32_t* numerator, uint32_t* denominator);
KELVONCLIP_API bool kclip_standard_has_dropframe(uint32_t standard);
KELVONCLIP_API uint32_t kclip_standard_default_flag(uint32_t standard);
KELVONCLIP_API uint32_t kclip_standard_rough_frequency(uint32_t standard);
KELVONCLIP_API uint32_t kclip_standard_rough_fields_per_second(uint32_t standard);
KELVONCLIP_API uint32_t kclip_standard_flag_for(uint32_t standard, uint32_t flag);
KELVONCLIP_API bool kclip_standard_ratio(uint32_t standard, uint32_t* numerator, uint32_t* denominator);
KELVONCLIP_API uint32_t kclip_rough_frequency_fields_per_second(uint32_t rough_frequency);
KELVONCLIP_API uint32_t kclip_frequency_audio_size(uint32_t frequency);
/// @}

/// @{
/// Fields in a unit of time: see timecode_fields_per_second and the others in kelvon_timecode.h.
KELVONCLIP_API uint32_t kclip_timecode_fields_per_second(uint32_t frequency, uint32_t flag);
KELVONCLIP_API uint32_t kclip_timecode_fields_per_minute(uint32_t frequency, uint32_t flag);
KELVONCLIP_API uint32_t kclip_timecode_fields_per_10minutes(uint32_t frequency, uint32_t flag);
KELVONCLIP_API uint32_t kclip_timecode_fields_per_hour(uint32_t frequency, uint32_t flag);
KELVONCLIP_API uint32_t kclip_timecode_fields_per_day(uint32_t frequency, uint32_t flag);
/// @}

/// @{
/// Making timecodes: each returns whether the result is defined. `timecode` receives it, undefined where it is not.
/// The frequency and the flag of the result are those that are given, or what the bytes say.
KELVONCLIP_API bool kclip_timecode_from_fields(uint32_t frequency, uint32_t flag, uint32_t fields,
                                               kclip_timecode* timecode);
KELVONCLIP_API bool kclip_timecode_from_label(uint32_t frequency, uint32_t flag, kclip_label const* label,
                                              kclip_timecode* timecode);
KELVONCLIP_API bool kclip_timecode_from_text(uint32_t frequency, uint32_t flag, char const* label_text,
                                             kclip_timecode* timecode);
KELVONCLIP_API bool kclip_timecode_from_sony(uint32_t frequency, void const* bytes, kclip_timecode* timecode);
KELVONCLIP_API bool kclip_timecode_from_tc64(uint32_t frequency, void const* bytes, kclip_timecode* timecode);
/// @}

/// @{
/// What a timecode is: the label (all 0 when undefined), its text as KTimecode::toString gives it, and the bytes of a
/// unit. The text goes to the caller's buffer like the texts of a clip. The others return false for a null pointer,
/// to_label and to_sony for an undefined timecode too.
KELVONCLIP_API bool kclip_timecode_to_label(kclip_timecode const* timecode, kclip_label* label);
KELVONCLIP_API uint32_t kclip_timecode_to_text(kclip_timecode const* timecode, uint32_t count, char* buffer,
                                               uint32_t size);
KELVONCLIP_API bool kclip_timecode_to_sony(kclip_timecode const* timecode, void* bytes);
KELVONCLIP_API bool kclip_timecode_to_tc64(kclip_timecode const* timecode, void* bytes);
KELVONCLIP_API bool kclip_timecode_is_defined(kclip_timecode const* timecode);
/// @}

/// @{
/// Comparing: -1, 0 or 1, see KTimecode::cmp and cmp24; and whether a timecode lies in a range that begins at `start`
/// and has `length`.
KELVONCLIP_API int32_t kclip_timecode_cmp(kclip_timecode const* a, kclip_timecode const* b);
KELVONCLIP_API int32_t kclip_timecode_cmp24(kclip_timecode const* a, kclip_timecode const* b);
KELVONCLIP_API bool kclip_timecode_is_inrange(kclip_timecode const* timecode, kclip_timecode const* start,
                                              kclip_timecode const* length);
KELVONCLIP_API bool kclip_timecode_is_inrange24(kclip_timecode const* timecode, kclip_timecode const* start,
                                                kclip_timecode const* length);
/// @}

/// @{
/// Changing a timecode; nothing changes in an undefined one. Sums wrap at 32 bits. `wrap` drops the days of the result:
/// see KTimecode::add and subtract. kclip_timecode_decrease stops at 0. A timecode is added by its fields.
KELVONCLIP_API void kclip_timecode_add(kclip_timecode* timecode, uint32_t fields, bool wrap);
KELVONCLIP_API void kclip_timecode_subtract(kclip_timecode* timecode, uint32_t fields, bool wrap);
KELVONCLIP_API void kclip_timecode_decrease(kclip_timecode* timecode, uint32_t fields);
KELVONCLIP_API void kclip_timecode_wrap24(kclip_timecode* timecode);
KELVONCLIP_API void kclip_timecode_become_a_day(kclip_timecode* timecode);
KELVONCLIP_API void kclip_timecode_set_fields(kclip_timecode* timecode, uint32_t fields);
KELVONCLIP_API void kclip_timecode_set_flag(kclip_timecode* timecode, uint32_t flag);
KELVONCLIP_API void kclip_timecode_force_field(kclip_timecode* timecode, bool field_2);
/// @}

/// @{
/// Big-endian pieces, as loaded, to a number: fromBE of byte_order.h. The number behind `of` is that of the bits of a
/// piece, the most significant first.
KELVONCLIP_API uint8_t kclip_from_be_u8(uint8_t a);
KELVONCLIP_API int8_t kclip_from_be_s8(int8_t a);
KELVONCLIP_API uint16_t kclip_from_be_u16_of_8(uint8_t a, uint8_t b);
KELVONCLIP_API uint16_t kclip_from_be_u16(uint16_t a);
KELVONCLIP_API int16_t kclip_from_be_s16_of_8(int8_t a, int8_t b);
KELVONCLIP_API int16_t kclip_from_be_s16(int16_t a);
KELVONCLIP_API uint32_t kclip_from_be_u32_of_8(uint8_t a, uint8_t b, uint8_t c, uint8_t d);
KELVONCLIP_API uint32_t kclip_from_be_u32_of_16(uint16_t a, uint16_t b);
KELVONCLIP_API uint32_t kclip_from_be_u32(uint32_t a);
KELVONCLIP_API int32_t kclip_from_be_s32_of_8(int8_t a, int8_t b, int8_t c, int8_t d);
KELVONCLIP_API int32_t kclip_from_be_s32_of_16(int16_t a, int16_t b);
KELVONCLIP_API int32_t kclip_from_be_s32(int32_t a);
KELVONCLIP_API uint64_t kclip_from_be_u64_of_8(uint8_t a, uint8_t b, uint8_t c, uint8_t d, uint8_t e, uint8_t f,
                                               uint8_t g, uint8_t h);
KELVONCLIP_API uint64_t kclip_from_be_u64_of_16(uint16_t a, uint16_t b, uint16_t c, uint16_t d);
KELVONCLIP_API uint64_t kclip_from_be_u64_of_32(uint32_t a, uint32_t b);
KELVONCLIP_API uint64_t kclip_from_be_u64(uint64_t a);
KELVONCLIP_API int64_t kclip_from_be_s64_of_8(int8_t a, int8_t b, int8_t c, int8_t d, int8_t e, int8_t f, int8_t g,
                                              int8_t h);
KELVONCLIP_API int64_t kclip_from_be_s64_of_16(int16_t a, int16_t b, int16_t c, int16_t d);
KELVONCLIP_API int64_t kclip_from_be_s64_of_32(int32_t a, int32_t b);
KELVONCLIP_API int64_t kclip_from_be_s64(int64_t a);
/// @}

/// @{
/// Numbers to a value whose bytes in memory are big-endian: toBE of byte_order.h.
KELVONCLIP_API uint8_t kclip_to_be_u8(uint8_t a);
KELVONCLIP_API int8_t kclip_to_be_s8(int8_t a);
KELVONCLIP_API uint16_t kclip_to_be_u16_of_8(uint8_t a, uint8_t b);
KELVONCLIP_API uint16_t kclip_to_be_u16(uint16_t a);
KELVONCLIP_API int16_t kclip_to_be_s16_of_8(int8_t a, int8_t b);
KELVONCLIP_API int16_t kclip_to_be_s16(int16_t a);
KELVONCLIP_API uint32_t kclip_to_be_u32_of_8(uint8_t a, uint8_t b, uint8_t c, uint8_t d);
KELVONCLIP_API uint32_t kclip_to_be_u32_of_16(uint16_t a, uint16_t b);
KELVONCLIP_API uint32_t kclip_to_be_u32(uint32_t a);
KELVONCLIP_API int32_t kclip_to_be_s32_of_8(int8_t a, int8_t b, int8_t c, int8_t d);
KELVONCLIP_API int32_t kclip_to_be_s32_of_16(int16_t a, int16_t b);
KELVONCLIP_API int32_t kclip_to_be_s32(int32_t a);
KELVONCLIP_API uint64_t kclip_to_be_u64_of_8(uint8_t a, uint8_t b, uint8_t c, uint8_t d, uint8_t e, uint8_t f,
                                             uint8_t g, uint8_t h);
KELVONCLIP_API uint64_t kclip_to_be_u64_of_16(uint16_t a, uint16_t b, uint16_t c, uint16_t d);
KELVONCLIP_API uint64_t kclip_to_be_u64_of_32(uint32_t a, uint32_t b);
KELVONCLIP_API uint64_t kclip_to_be_u64(uint64_t a);
KELVONCLIP_API int64_t kclip_to_be_s64_of_8(int8_t a, int8_t b, int8_t c, int8_t d, int8_t e, int8_t f, int8_t g,
                                            int8_t h);
KELVONCLIP_API int64_t kclip_to_be_s64_of_16(int16_t a, int16_t b, int16_t c, int16_t d);
KELVONCLIP_API int64_t kclip_to_be_s64_of_32(int32_t a, int32_t b);
KELVONCLIP_API int64_t kclip_to_be_s64(int64_t a);
/// @}

#ifdef __cplusplus
}
#endif
