// The exported functions that tell the library's version.
#include <kelvonclip/version.h>

#include "foundation/exported.h"
#include "foundation/kstring.h"
#include "foundation/string_stash.h"

namespace KelvonClip {

unsigned int library_version() { return KELVONCLIP_VERSION; }

wchar_t const* library_version_text() {
    return exportedQuery<wchar_t const*>(nullptr, [] {
        return stash(KString::format("%1.%2.%3", {KString::fromUnsigned(KELVONCLIP_VERSION_MAJOR),
                                                  KString::fromUnsigned(KELVONCLIP_VERSION_MINOR),
                                                  KString::fromUnsigned(KELVONCLIP_VERSION_PATCH)}));
    });
}

}  // namespace KelvonClip
