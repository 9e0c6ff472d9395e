#include "picture_format.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <utility>

#include <fmt/format.h>

#include "text.h"

namespace tool {

using namespace KelvonClip;

namespace {

// A unit of JPEG 2000 is a field, or the frame of a progressive raster; a unit of the others is a frame.
std::uint32_t unitLines(VideoStandard standard, EssenceKind kind) {
    return kind == EssenceKind::j2k ? field_height(standard) : frame_height(standard);
}

bool hasScan(VideoStandard standard, PictureFacts const& facts) {
    return !facts.interlaced || *facts.interlaced == isInterlaced(standard);
}

}  // namespace

TrackVideoType videoType(EssenceKind kind) {
    constexpr std::array TYPES = {TrackVideoType::none, TrackVideoType::avc, TrackVideoType::dv, TrackVideoType::j2k};
    return TYPES.at(static_cast<std::size_t>(kind));
}

bool hasRaster(VideoStandard standard, EssenceKind kind, PictureFacts const& facts) {
    if (facts.width == 0) return true;
    if (facts.width != width(standard)) return false;
    std::uint32_t const lines = unitLines(standard, kind);
    // Codings of 525i leave out six of its 486 lines.
    bool const fewer = toVideoResolution(standard) == VideoResolution::r525i && facts.lines == lines * 480 / 486;
    return facts.lines == lines || fewer;
}

bool hasRate(VideoStandard standard, PictureFacts const& facts) {
    std::uint32_t numerator = 0, denominator = 0;
    if (facts.rate_numerator == 0 || !toRatio(standard, &numerator, &denominator)) return true;
    std::uint64_t const fields_per_frame = isInterlaced(standard) ? 2 : 1;
    return std::uint64_t{facts.rate_numerator} * denominator * fields_per_frame ==
           std::uint64_t{numerator} * facts.rate_denominator;
}

std::vector<VideoStandard> standardsOf(EssenceKind kind, PictureFacts const& facts) {
    std::vector<VideoStandard> found;
    VideoStandard standard{};
    for (bool more = facts.width != 0 && getfirst(standard); more; more = getnext(standard))
        if (hasRaster(standard, kind, facts) && hasScan(standard, facts) && hasRate(standard, facts) &&
            format_video_creatable(standard, videoType(kind)))
            found.push_back(standard);
    return found;
}

std::string factsText(PictureFacts const& facts) {
    if (facts.width == 0) return {};
    std::string text = fmt::format("{} x {} pixels", facts.width, facts.lines);
    if (facts.interlaced) text += *facts.interlaced ? ", interlaced" : ", progressive";
    if (facts.rate_denominator != 0)
        text += fmt::format(", {:.5g} frames a second",
                            static_cast<double>(facts.rate_numerator) / static_cast<double>(facts.rate_denominator));
    return text;
}

std::string rasterText(VideoStandard standard, EssenceKind kind) {
    return fmt::format("{} x {}", width(standard), unitLines(standard, kind));
}

std::vector<PictureFormat> pictureFormats(VideoStandard standard, EssenceKind kind) {
    std::vector<PictureFormat> formats;
    for (unsigned index = 0; wchar_t const* const name = format_name(standard, index); ++index) {
        PictureFormat format;
        format_info(standard, name, &format.video);
        if (format.video.creatable == 0 || format.video.category != TrackCategory::video) continue;
        if (format.video.video_type != videoType(kind)) continue;
        format.name = utf8(name);
        format.key_name = format.name + "k";
        format_info(standard, wide(format.key_name).c_str(), &format.key);
        formats.push_back(std::move(format));
    }
    return formats;
}

}  // namespace tool
