/// @file
/// The sizes that a unit of a JPEG 2000 track may have at each video standard.
///
/// A J2K track has a bit rate, a multiple of 5 Mbit/s between a least and a greatest value that depend on the standard;
/// the bit rate fixes the bytes of a unit. A unit covers one field of an interlaced raster, one frame of a progressive
/// one. A video unit has room for luma and for chroma data, a key unit for one picture.
///
/// All sizes are bytes of one unit. Each function returns 0 for a standard of neither high nor standard definition.
///
/// Threads: all functions may be called from any thread at any time.
/// Source: docs/standards.md, "JPEG 2000".
#pragma once

#include <cstdint>

#include <kelvonclip/export.h>
#include <kelvonclip/kelvon_std.h>

namespace KelvonClip {

/// @{
/// Luma data of a video unit at the standard's greatest and least bit rate, a multiple of 256 bytes.
KELVONCLIP_API std::uint32_t j2k_video_luma_max_size(VideoStandard standard);
KELVONCLIP_API std::uint32_t j2k_video_luma_min_size(VideoStandard standard);
/// @}

/// @{
/// Chroma data of a video unit at the greatest and least bit rate.
KELVONCLIP_API std::uint32_t j2k_video_chroma_max_size(VideoStandard standard);
KELVONCLIP_API std::uint32_t j2k_video_chroma_min_size(VideoStandard standard);
/// @}

/// @{
/// A whole video unit, luma and chroma together, at the greatest and least bit rate: a multiple of 4096 bytes.
KELVONCLIP_API std::uint32_t j2k_video_max_size(VideoStandard standard);
KELVONCLIP_API std::uint32_t j2k_video_min_size(VideoStandard standard);
/// @}

/// @{
/// A key unit at the greatest and least bit rate: a multiple of 4096 bytes.
KELVONCLIP_API std::uint32_t j2k_key_max_size(VideoStandard standard);
KELVONCLIP_API std::uint32_t j2k_key_min_size(VideoStandard standard);
/// @}

}  // namespace KelvonClip
