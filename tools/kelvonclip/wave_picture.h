// The picture of a subchannel: its waveform from full scale to full scale, with the boundaries of its recordings.
#pragma once

#include <string>

#include "sound_overview.h"

namespace tool {

// An SVG element as wide as what it stands in, with a title and a description. `id` makes its ids unique in the page;
// all texts are markup. The part of the track before and behind `from` and `to` (0 to 1) is shown as trimmed off.
struct WavePicture {
    std::string id, title, description;
    double from = 0, to = 1;
};
std::string wavePicture(SubchannelSound const& sound, WavePicture const& picture);

// The shapes that the pictures refer to, once in a page.
std::string waveShapes();

}  // namespace tool
