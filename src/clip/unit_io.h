// Unit I/O by track handle, as the exported functions and sequential audio use it: synchronous, empty on success.
// Threads: any; a call waits, alertably, for its own I/O only.
#pragma once

#include <cstdint>

#include "foundation/kstring.h"

namespace KelvonClip {

// "Bad Handle" for an unknown track.
KString readTrackUnit(std::uint32_t track_handle, std::uint32_t unit, void* buffer);
// "Bad Handle" for an unknown track, "Clip was opened in read-only mode" for a track of such a clip.
KString writeTrackUnit(std::uint32_t track_handle, std::uint32_t unit, void const* buffer, std::uint32_t size);

}  // namespace KelvonClip
