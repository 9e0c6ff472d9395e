#include "recorders.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "clip/clip_header.h"
#include "clip_view.h"
#include "console.h"
#include "failure.h"
#include "reason.h"
#include "text.h"
#include "vfile/vfile_builder.h"

namespace tool {

using namespace KelvonClip;
using platform::FileAccess;
using platform::HostFile;

namespace {

// The files of their own that a header names.
std::vector<KString> namedFiles(std::string const& path) {
    std::vector<KString> names;
    HeaderRead const read = readClipHeader(*openForReading(path));
    if (!read.meta) return names;
    for (XmlNode const track : read.meta->track_meta) {
        VFileLevel level = vfileLevel(track.child("VFile"));
        while (level.kind != VFileKind::none && !level.isBottom())
            level = level.below();
        if (level.kind != VFileKind::file_name) continue;
        KString const name = hostFileName(kstring(path), level.element.text());
        if (std::ranges::find(names, name) == names.end()) names.push_back(name);
    }
    return names;
}

}  // namespace

Recorders::Recorders(std::string const& path) {
    auto opened = HostFile::open(kstring(path).toUtf16(), FileAccess::read_only);
    if (!opened.file) throw Failure(FAILED, {path}, reasonText(KString(opened.error)));
    files.push_back(std::move(opened.file));
    for (KString const& name : namedFiles(path))
        if (auto named = HostFile::open(name.toUtf16(), FileAccess::read_only); named.file)
            files.push_back(std::move(named.file));
}

Recorders::Writer Recorders::now() const {
    Writer answer = Writer::nobody;
    for (auto const& file : files) {
        Writer const one = file->otherWriter();
        if (one == Writer::somebody) return one;
        if (one == Writer::unknown) answer = one;
    }
    return answer;
}

Recorders::Writer Recorders::forSure() const {
    constexpr std::chrono::milliseconds MOMENT{50};
    if (Writer const first = now(); first != Writer::nobody) return first;
    pauseFor(MOMENT);
    return now();
}

}  // namespace tool
