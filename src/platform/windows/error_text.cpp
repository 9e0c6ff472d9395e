#include "platform/error_text.h"

#include <windows.h>

#include <vector>

namespace KelvonClip::platform {

// KEEP: the line end that Windows puts after a message stays; a code for which Windows has no text gives an empty one.
std::u16string lastErrorText() {
    DWORD const code = GetLastError();
    if (code == 0) return {};
    std::vector<wchar_t> text(32768);
    DWORD const length = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM, nullptr, code, 0, text.data(),
                                        static_cast<DWORD>(text.size()), nullptr);
    return {text.data(), text.data() + length};
}

}  // namespace KelvonClip::platform
