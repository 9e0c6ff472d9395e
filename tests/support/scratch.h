// A temporary folder for one test: unique, empty at the start, removed with its contents at the end.
#pragma once

#include <string>

#include "foundation/kstring.h"
#include "support/scratch_path.h"

namespace KelvonClip {

struct ScratchFolder : ScratchPath {
    using ScratchPath::ScratchPath;

    // The path of a file in the folder, in the forms that the interfaces expect. `name` is plain ASCII.
    KString file(char const* name) const { return KString((path / name).string()); }
    std::wstring wide(char const* name) const { return file(name).toWide(); }
};

}  // namespace KelvonClip
