#include "vfile/unclosed_files.h"

#include <mutex>
#include <utility>

#include "foundation/locked.h"

namespace KelvonClip {

namespace {

constinit std::mutex list_mutex;
constinit UnclosedFile* first = nullptr;

}  // namespace

void UnclosedFile::keep(std::shared_ptr<UnclosedFile> file) noexcept {
    auto const hold = locked(list_mutex);
    UnclosedFile& added = *file;
    added.kept = std::move(file);
    added.next = std::exchange(first, &added);
}

void UnclosedFile::closeAll() noexcept {
    UnclosedFile* each = nullptr;
    {
        auto const hold = locked(list_mutex);
        each = std::exchange(first, nullptr);
    }
    while (each != nullptr) {
        UnclosedFile& file = *each;
        each = file.next;
        file.closeAgain(std::move(file.kept));
    }
}

}  // namespace KelvonClip
