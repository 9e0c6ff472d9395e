#include "c_api/utf8_stash.h"

#include <set>
#include <string>

#include "foundation/kprotect.h"
#include "foundation/never_destroyed.h"

namespace KelvonClip {

char const* stashUtf8(KString const& text) {
    if (text.empty()) return nullptr;
    static auto& texts = neverDestroyed<KProtect<std::set<std::string>>>();
    return texts.hold().value.insert(text.toUtf8()).first->c_str();  // a set never moves its texts
}

}  // namespace KelvonClip
