// The UTF-8 texts that the C interface returns. The string stash (foundation) has the wide ones.
#pragma once

#include "foundation/kstring.h"

namespace KelvonClip {

// The stash's UTF-8 copy of a text, or null for the empty text. Equal texts give the same pointer. It stays valid until
// the library is unloaded. Throws std::bad_alloc if there is no memory for a new text. Threads: any.
char const* stashUtf8(KString const& text);

}  // namespace KelvonClip
