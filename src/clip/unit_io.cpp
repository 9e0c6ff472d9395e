#include "clip/unit_io.h"

#include "clip/clip_directory.h"

namespace KelvonClip {

KString readTrackUnit(std::uint32_t track_handle, std::uint32_t unit, void* buffer) {
    auto const found = findTrack(track_handle);
    if (!found) return "Bad Handle";
    return found.track->readUnit(unit, buffer);
}

KString writeTrackUnit(std::uint32_t track_handle, std::uint32_t unit, void const* buffer, std::uint32_t size) {
    auto const found = findTrack(track_handle);
    if (!found) return "Bad Handle";
    if (found.entry->read_only) return "Clip was opened in read-only mode";
    return found.track->writeUnit(unit, buffer, size);
}

}  // namespace KelvonClip
