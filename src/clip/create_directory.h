// The registry of clips under creation.
//
// A clip is under creation from create_begin until a create_finish succeeds or create_cancel ends it; a create_finish
// that fails changes nothing.
//
// Locks, outermost first: the finishing lock of one clip under creation (held for the whole create_finish, including
// I/O and the opening of the new clip), then those of the clip directory. The open lock is held from the check that
// nobody has the file open until the new clip is open. The registry's lock is held for look-ups and changes only;
// inside it only the handle space's lock is taken.
// Threads: any.
#pragma once

#include <cstdint>
#include <functional>

#include "clip/create_clip.h"

namespace KelvonClip {

// Registers a new clip under creation. Messages: see create_begin.
KString beginCreation(KString const& file_name, VideoStandard standard, unsigned int* handle);

// Applies a change to the description, under the registry's lock, and returns its message. A `change` that returns a
// message has changed nothing. Returns `unknown` for an unknown handle.
KString configureCreation(std::uint32_t handle, char const* unknown,
                          std::function<KString(ClipDescription&)> const& change);

// The file name of a clip under creation; empty for an unknown handle.
KString nameOfCreation(std::uint32_t handle);

// Creates and opens the clip. Messages: see create_finish.
KString finishCreation(std::uint32_t handle, unsigned int* clip);

// Ends a creation without a clip. "Bad Handle" for an unknown handle.
KString cancelCreation(std::uint32_t handle);

}  // namespace KelvonClip
