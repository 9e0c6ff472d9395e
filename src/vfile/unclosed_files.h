// Files that could not be closed by their last user for lack of memory. They keep all their data. Closing is tried
// again before any file is opened and when a clip is closed.
//
// Threads: any. Nothing here allocates memory.
#pragma once

#include <memory>

namespace KelvonClip {

class UnclosedFile {
  public:
    virtual ~UnclosedFile() = default;

    // Closes the file, or keeps it again. `self` is the reference that was kept.
    virtual void closeAgain(std::shared_ptr<UnclosedFile> self) noexcept = 0;

    static void keep(std::shared_ptr<UnclosedFile> file) noexcept;
    // Tries to close all files that are kept.
    static void closeAll() noexcept;

  private:
    // While it is kept the object refers to itself: the list outlives every static object.
    std::shared_ptr<UnclosedFile> kept;
    UnclosedFile* next = nullptr;
};

}  // namespace KelvonClip
