// The registry of clips under creation.
//
// A clip under creation lives from create_begin to the create_finish that succeeds; a failed one leaves it in place.
//
// Locks, outermost first: the finishing lock of one clip under creation (held through create_finish, I/O and the
// opening of the new clip included), then those of the clip directory; the registry's lock is held for look-ups and
// changes only, and no other lock is taken inside it but the handle space's.
// Threads: any.
#pragma once

#include <cstdint>
#include <functional>

#include "clip/create_clip.h"

namespace KelvonClip {

// Enters a new clip under creation. Messages as for create_begin.
KString beginCreation(KString const& file_name, VideoStandard standard, unsigned int* handle);

// Applies a change to the description, under the registry's lock; `change` gives a message and changes nothing when it
// refuses. Gives `unknown` for a handle that names no clip under creation.
KString configureCreation(std::uint32_t handle, char const* unknown,
                          std::function<KString(ClipDescription&)> const& change);

// Creates and opens the clip. Messages as for create_finish.
KString finishCreation(std::uint32_t handle, unsigned int* clip);

}  // namespace KelvonClip
