#include "platform/path_rule.h"

namespace KelvonClip::platform {

std::u32string fileBesideHeader(std::u32string const&, std::u32string const& text) { return text; }

}  // namespace KelvonClip::platform
