// A folder of a test's own, unique and empty at the start, removed with everything in it at the end.
#pragma once

#include <string>

#include "foundation/kstring.h"
#include "support/scratch_path.h"

namespace KelvonClip {

struct ScratchFolder : ScratchPath {
    using ScratchPath::ScratchPath;

    // Names of a file in the folder (plain ASCII, as the folder's own), in the forms that the interfaces take.
    KString file(char const* name) const { return KString((path / name).string()); }
    std::wstring wide(char const* name) const { return file(name).toWide(); }
};

}  // namespace KelvonClip
