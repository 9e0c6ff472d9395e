// The string stash: every text that leaves the library as `wchar_t const*` is interned here.
#pragma once

#include "foundation/kstring.h"

namespace KelvonClip {

// What a message says when memory has run out. It is there without any: also as the stash's copy of this text.
inline constexpr wchar_t OUT_OF_MEMORY[] = L"Out of memory";

// The one wide copy of a text: null for the empty text; equal texts give the identical pointer; the pointer stays valid
// until the library is unloaded and is never freed by the caller. Throws std::bad_alloc when there is no memory for a
// text that is new. Threads: any.
wchar_t const* stash(KString const& text);

}  // namespace KelvonClip
