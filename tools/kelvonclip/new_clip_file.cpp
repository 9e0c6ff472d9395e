#include "new_clip_file.h"

#include <filesystem>
#include <system_error>
#include <utility>

#include "failure.h"
#include "reason.h"
#include "text.h"

namespace tool {

using namespace KelvonClip;

bool isSameFile(std::string const& one, std::string const& other) {
    std::error_code ignored;
    return std::filesystem::equivalent(fsPath(one), fsPath(other), ignored);
}

NewClipFile::NewClipFile(std::string const& path, bool force)
    : name(path), overwrites(force), working_name((requireFree(path, force), temporaryName(path))),
      unfinished(working_name) {
    auto created = VFileFile::create(kstring(working_name));
    if (!created.file) throw Failure(FAILED, {name}, reasonText(created.error));
    open = std::move(created.file);
}

void NewClipFile::close() {
    if (!open) return;
    KString const unflushed = open->flush();
    open.reset();
    if (!unflushed.empty()) throw Failure(FAILED, {name}, reasonText(unflushed));
}

void NewClipFile::finish() {
    close();
    giveName(working_name, name, overwrites);
    auto const renamed = VFileFile::open(kstring(name), false);
    KString const fault = renamed.file ? renamed.file->flushName() : renamed.error;
    if (!renamed.file || !fault.empty()) throw Failure(FAILED, {name}, reasonText(fault));
}

}  // namespace tool
