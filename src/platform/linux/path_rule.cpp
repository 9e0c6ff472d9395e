#include "platform/path_rule.h"

namespace KelvonClip::platform {

std::u32string fileBesideHeader(std::u32string const& header_path, std::u32string const& text) {
    auto const slash = header_path.rfind(U'/');
    bool const absolute = text.starts_with(U'/');
    return absolute || slash == std::u32string::npos ? text : header_path.substr(0, slash + 1) + text;
}

}  // namespace KelvonClip::platform
