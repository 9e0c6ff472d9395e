// The exported size limits of JPEG 2000 tracks: the sizes at a standard's maximum and minimum bit rates.
#include <cstdint>

#include <kelvonclip/info_j2k.h>

#include "clip/info_j2k.h"

namespace KelvonClip {

std::uint32_t j2k_video_luma_max_size(VideoStandard standard) {
    return j2kSizes(standard, j2kMaxBitRate(standard)).luma;
}
std::uint32_t j2k_video_luma_min_size(VideoStandard standard) {
    return j2kSizes(standard, j2kMinBitRate(standard)).luma;
}
std::uint32_t j2k_video_chroma_max_size(VideoStandard standard) {
    return j2kSizes(standard, j2kMaxBitRate(standard)).chroma;
}
std::uint32_t j2k_video_chroma_min_size(VideoStandard standard) {
    return j2kSizes(standard, j2kMinBitRate(standard)).chroma;
}
std::uint32_t j2k_video_max_size(VideoStandard standard) {
    return j2k_video_luma_max_size(standard) + j2k_video_chroma_max_size(standard);
}
std::uint32_t j2k_video_min_size(VideoStandard standard) {
    return j2k_video_luma_min_size(standard) + j2k_video_chroma_min_size(standard);
}
std::uint32_t j2k_key_max_size(VideoStandard standard) { return j2kSizes(standard, j2kMaxBitRate(standard)).key; }
std::uint32_t j2k_key_min_size(VideoStandard standard) { return j2kSizes(standard, j2kMinBitRate(standard)).key; }

}  // namespace KelvonClip
