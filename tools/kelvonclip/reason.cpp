#include "reason.h"

#include <string_view>

#include "foundation/kstring.h"
#include "text.h"

namespace tool {

std::string reasonText(KelvonClip::KString const& message) {
    std::string const text = message.toUtf8();
    // Windows ends its messages with a line break.
    std::string_view const line = std::string_view(text).substr(0, text.find_last_not_of(" \r\n") + 1);
    return line.empty() ? "the host gives no reason" : printable(line);
}

}  // namespace tool
