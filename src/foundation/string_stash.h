// The string stash: every text that leaves the library as `wchar_t const*` is interned here.
#pragma once

#include "foundation/kstring.h"

namespace KelvonClip {

// The one wide copy of a text: null for the empty text; equal texts give the identical pointer; the pointer stays valid
// until the library is unloaded and is never freed by the caller. Threads: any.
wchar_t const* stash(KString const& text);

}  // namespace KelvonClip
