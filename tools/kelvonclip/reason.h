// What the host or the library says of a failure, as the end of a line.
#pragma once

#include <string>

namespace KelvonClip {
class KString;
}

namespace tool {

std::string reasonText(KelvonClip::KString const& message);

}  // namespace tool
