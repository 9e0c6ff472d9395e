#include "platform/file_birth.h"

#include <fcntl.h>
#include <sys/stat.h>

#include "platform/linux/host_text.h"

namespace KelvonClip::platform {

std::optional<std::uint64_t> birthOfFile(std::u16string const& name) {
    struct statx found;
    bool const known = ::statx(AT_FDCWD, hostFileName(name).c_str(), 0, STATX_BTIME, &found) == 0 &&
                       (found.stx_mask & STATX_BTIME) != 0 && found.stx_btime.tv_sec > 0;
    return known ? std::optional(static_cast<std::uint64_t>(found.stx_btime.tv_sec)) : std::nullopt;
}

}  // namespace KelvonClip::platform
