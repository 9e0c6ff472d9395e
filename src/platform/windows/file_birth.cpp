#include "platform/file_birth.h"

#include <windows.h>

namespace KelvonClip::platform {

std::optional<std::uint64_t> birthOfFile(std::u16string const& name) {
    constexpr std::uint64_t TICKS_PER_SECOND = 10000000, SECONDS_FROM_1601_TO_1970 = 11644473600;
    WIN32_FILE_ATTRIBUTE_DATA found;
    if (!GetFileAttributesExW(std::wstring(name.begin(), name.end()).c_str(), GetFileExInfoStandard, &found))
        return std::nullopt;
    std::uint64_t const ticks =
        (std::uint64_t{found.ftCreationTime.dwHighDateTime} << 32) | found.ftCreationTime.dwLowDateTime;
    if (ticks / TICKS_PER_SECOND <= SECONDS_FROM_1601_TO_1970) return std::nullopt;
    return ticks / TICKS_PER_SECOND - SECONDS_FROM_1601_TO_1970;
}

}  // namespace KelvonClip::platform
