// The numbers by which callers name things: clips, tracks, clips under creation, sequential readers and writers all
// draw from one process-wide space, so that a number is never valid as two kinds of thing at once.
//
// Threads: any.
#pragma once

#include <cstdint>
#include <set>

#include "foundation/kprotect.h"

namespace KelvonClip {

// A space of handle numbers. Numbers rise by one, 0 is never issued, and a number that was given back is issued again
// only after the counter has wrapped past it.
class HandleSpace {
  public:
    explicit HandleSpace(std::uint32_t next = 0) : state(State{{}, next}) {}

    std::uint32_t allocate();
    void release(std::uint32_t number);

    // The space that every HandleObject draws from; lives until the process ends.
    static HandleSpace& process();

  private:
    struct State {
        std::set<std::uint32_t> in_use;
        std::uint32_t next = 0;
    };
    KProtect<State> state;
};

// Owns exactly one number of the process's space. A number that cannot be given back would be a handle that names
// nothing for ever, so a failure there ends the process (the destructor does not throw).
class HandleObject {
  public:
    HandleObject() : value(HandleSpace::process().allocate()) {}
    ~HandleObject() { HandleSpace::process().release(value); }
    HandleObject(HandleObject const&) = delete;
    HandleObject& operator=(HandleObject const&) = delete;

    std::uint32_t number() const { return value; }

  private:
    std::uint32_t value;
};

}  // namespace KelvonClip
