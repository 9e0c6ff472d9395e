// How a host reads a file name that stands in a clip header.
#pragma once

#include <string>

namespace KelvonClip::platform {

// The name under which to open the file `text` of a header that lies at `header_path`, for a path without a backslash;
// one with a backslash is joined in the same way on every host and does not come here.
// Linux: a relative text is taken from the folder of the header file, if its path names one. Windows: the text itself.
std::u32string fileBesideHeader(std::u32string const& header_path, std::u32string const& text);

}  // namespace KelvonClip::platform
