// Files whose last user has let go of them while there was no memory to close them. They stay as they are, with all
// that they hold, until there is: closing is tried again before any file is opened and when a clip is closed.
//
// Threads: any. Nothing here needs memory.
#pragma once

#include <memory>

namespace KelvonClip {

class UnclosedFile {
  public:
    virtual ~UnclosedFile() = default;

    // Closes the file, or keeps it again. `self` is the reference to this object that was kept.
    virtual void closeAgain(std::shared_ptr<UnclosedFile> self) noexcept = 0;

    static void keep(std::shared_ptr<UnclosedFile> file) noexcept;
    // Tries to close all that are kept.
    static void closeAll() noexcept;

  private:
    // While it is kept the object refers to itself: the list outlives every static object.
    std::shared_ptr<UnclosedFile> kept;
    UnclosedFile* next = nullptr;
};

}  // namespace KelvonClip
