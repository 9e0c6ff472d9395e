// How the page of a report looks.
#pragma once

#include <string_view>

namespace tool {

// CSS: light and dark, narrow and wide, screen and paper.
extern std::string_view const REPORT_STYLE;

}  // namespace tool
