// The exported function that joins a message and the file that it is about.
#include <kelvonclip/message.h>

#include <cstdint>

#include "clip/clip_directory.h"
#include "clip/create_directory.h"
#include "foundation/caller_buffer.h"
#include "foundation/kstring.h"

namespace KelvonClip {

namespace {

// The file behind a handle of any kind; empty for an unknown handle.
KString fileBehind(std::uint32_t handle) {
    if (auto const clip = findClip(handle)) return *clip->file_name;
    if (auto const found = findTrack(handle)) return found.track->units().name();
    return nameOfCreation(handle);
}

}  // namespace

unsigned int message_with_file(wchar_t const* message, unsigned int handle, wchar_t* buffer, unsigned int size) {
    return exportedText(buffer, size, [&] {
        KString const file = fileBehind(handle);
        return file.empty() ? KString(message) : file + KString(": ") + KString(message);
    });
}

}  // namespace KelvonClip
