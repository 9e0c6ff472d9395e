#include "vfile/unclosed_files.h"

#include <atomic>
#include <utility>

namespace KelvonClip {

namespace {

// Files are only added to this list, and all are taken at once. So it needs no mutex, for which some hosts would
// allocate memory.
constinit std::atomic<UnclosedFile*> newest = nullptr;

}  // namespace

void UnclosedFile::keep(std::shared_ptr<UnclosedFile> file) noexcept {
    UnclosedFile& added = *file;
    added.kept = std::move(file);
    added.next = newest.load();
    while (!newest.compare_exchange_weak(added.next, &added)) {
    }
}

void UnclosedFile::closeAll() noexcept {
    UnclosedFile* each = newest.exchange(nullptr);
    while (each != nullptr) {
        UnclosedFile& file = *each;
        each = file.next;
        file.closeAgain(std::move(file.kept));
    }
}

}  // namespace KelvonClip
