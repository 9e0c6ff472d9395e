// The host's words for its errors.
#pragma once

#include <string>

namespace KelvonClip::platform {

// The text of the calling thread's last host error, as the host gives it; empty when there is none.
std::u16string lastErrorText();

}  // namespace KelvonClip::platform
