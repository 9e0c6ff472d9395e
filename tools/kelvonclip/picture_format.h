// Which standard pictures belong to, and which track format holds their units.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <kelvonclip/kelvon_std.h>
#include <kelvonclip/track.h>
#include <kelvonclip/track_format.h>

#include "unit_cutter.h"

namespace tool {

KelvonClip::TrackVideoType videoType(EssenceKind kind);

// The standards that pictures of this kind may belong to by what they say of themselves.
std::vector<KelvonClip::VideoStandard> standardsOf(EssenceKind kind, PictureFacts const& facts);

// Whether a unit of the standard has pictures of this size, and whether they come at its rate; true where it is not
// told.
bool hasRaster(KelvonClip::VideoStandard standard, EssenceKind kind, PictureFacts const& facts);
bool hasRate(KelvonClip::VideoStandard standard, PictureFacts const& facts);

// "720 x 288 pixels, interlaced, 25 pictures a second"; empty if nothing is told.
std::string factsText(PictureFacts const& facts);
// "720 x 288", of a unit
std::string rasterText(KelvonClip::VideoStandard standard, EssenceKind kind);

// A format of video tracks that can be created, and of their key tracks.
struct PictureFormat {
    std::string name, key_name;
    KelvonClip::FormatInfo video{}, key{};
};
// All that a standard has for a kind, the smallest units first.
std::vector<PictureFormat> pictureFormats(KelvonClip::VideoStandard standard, EssenceKind kind);

}  // namespace tool
