// The string stash stores all texts that the library returns as `wchar_t const*`.
#pragma once

#include "foundation/kstring.h"

namespace KelvonClip {

// The message for lack of memory. It needs no allocation; `stash` returns this very constant for the same text.
inline constexpr wchar_t OUT_OF_MEMORY[] = L"Out of memory";

// Returns the stash's wide copy of a text, or null for the empty text. Equal texts give the same pointer. It stays
// valid until the library is unloaded and is never freed by the caller. Throws std::bad_alloc if there is no memory for
// a new text. Threads: any.
wchar_t const* stash(KString const& text);

}  // namespace KelvonClip
