/// @file
/// Track formats: which ones exist at a video standard, and how large their units are.
///
/// A track has a format with a name, such as "avci100-1080i", "dv50k", "jp2@55", "auk" or "tc2". Name and video
/// standard together decide what a unit of the track is. These functions tell beforehand what create_finish can make,
/// and what a track of a name would be.
///
/// Threads: all functions may be called from any thread at any time.
/// Source: docs/standards.md, "Track formats".
#pragma once

#include <cstdint>

#include <kelvonclip/export.h>
#include <kelvonclip/kelvon_std.h>
#include <kelvonclip/track.h>

namespace KelvonClip {

/// A track format at a video standard; what does not apply is 0. The layout is the same for every compiler.
struct FormatInfo {
    TrackCategory category;         ///< what its tracks hold
    TrackVideoType video_type;      ///< how pictures are coded (video and key)
    TrackAudioType audio_type;      ///< how sound is coded
    AVCFlavor avc_flavor;           ///< the family of an AVC format
    std::uint32_t avc_class;        ///< Mbit/s of an AVC format
    std::uint32_t subchannels;      ///< of an audio format
    std::uint32_t unit_size;        ///< bytes of a unit, as track_unit_size gives them
    std::uint32_t fields_per_unit;  ///< fields that a unit covers
    std::uint32_t luma_size;        ///< bytes of luma in a JPEG 2000 video unit: cfg_video_j2k takes both sizes
    std::uint32_t chroma_size;      ///< bytes of chroma in a JPEG 2000 video unit
    std::uint32_t creatable;        ///< 1: create_finish can make tracks of it; 0: they can only be opened
};

/// The names of the formats that a standard has: video formats, each followed by its key format, then audio and
/// timecode formats. All that create_finish can make at a standard:
/// @code
/// std::vector<FormatInfo> creatableFormats(VideoStandard standard) {
///     std::vector<FormatInfo> found;
///     FormatInfo info;
///     for (unsigned int index = 0; format_info(standard, format_name(standard, index), &info); ++index)
///         if (info.creatable != 0) found.push_back(info);
///     return found;
/// }
/// @endcode
/// @param standard  the video standard
/// @param index     0-based
/// @return the name, which stays valid until the library is unloaded; null past the last one and for a standard that is
///         not valid
KELVONCLIP_API wchar_t const* format_name(VideoStandard standard, unsigned int index);

/// Describes a format.
/// @param standard  the video standard
/// @param name      the format's name; case counts
/// @param info      receives the description, all 0 when there is none; may be null
/// @return whether the standard has a format of this name. False for null
KELVONCLIP_API bool format_info(VideoStandard standard, wchar_t const* name, FormatInfo* info);

/// Whether create_finish can make video and key tracks of a kind at a standard: avc is what cfg_video_avci configures,
/// dv what cfg_video_dv does, and j2k what cfg_video_j2k does. Where this is false, create_finish says
/// "Internal error".
KELVONCLIP_API bool format_video_creatable(VideoStandard standard, TrackVideoType type);

}  // namespace KelvonClip
