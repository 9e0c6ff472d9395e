// Whose turn it is to open, close or create the clip of a name. Callers with other names go on at once.
//
// Allocates nothing, so that a clip can be closed when memory has run out. A thread may take a turn that it already
// has. After a fork the child does not wait for threads of the parent, nor does anybody at the end of the process for
// threads that no longer exist.
// Threads: any; an object belongs to the thread that made it.
#pragma once

#include <cstdint>
#include <thread>

#include "foundation/kstring.h"

namespace KelvonClip {

class ClipNameTurn {
  public:
    // Waits until no other thread has the turn of this name. `clip_name` must outlive the object.
    explicit ClipNameTurn(KString const& clip_name);
    ~ClipNameTurn();
    ClipNameTurn(ClipNameTurn const&) = delete;
    ClipNameTurn& operator=(ClipNameTurn const&) = delete;

  private:
    bool keepsWaiting(ClipNameTurn const& other) const;

    KString const& name;
    std::thread::id const thread = std::this_thread::get_id();
    std::uint32_t const forks_before;
    ClipNameTurn* next = nullptr;  // in the list of all turns
};

}  // namespace KelvonClip
