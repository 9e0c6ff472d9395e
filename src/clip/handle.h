// Handle numbers. Clips, tracks, clips under creation, sequential readers and writers share one process-wide space, so
// a number never identifies two objects of different kinds.
//
// Threads: any.
#pragma once

#include <cstdint>
#include <set>

#include "foundation/kprotect.h"
#include "platform/host.h"

namespace KelvonClip {

// A space of handle numbers. Numbers increase by one, 0 is never issued, and a released number is issued again only
// after the counter has wrapped around to it.
class HandleSpace {
  public:
    explicit HandleSpace(std::uint32_t next = 0) : state(State{{}, next}) {}

    std::uint32_t allocate();
    void release(std::uint32_t number);

    // The space that all HandleObjects use; never destroyed.
    static HandleSpace& process();

  private:
    struct State {
        std::set<std::uint32_t> in_use;
        std::uint32_t next = 0;
    };
    KProtect<State> state;
};

// Owns one number of the process's space. If the number cannot be released, the process terminates, because the
// destructor does not throw.
class HandleObject {
  public:
    HandleObject() : value(HandleSpace::process().allocate()) {}
    ~HandleObject() { HandleSpace::process().release(value); }
    HandleObject(HandleObject const&) = delete;
    HandleObject& operator=(HandleObject const&) = delete;

    std::uint32_t number() const { return value; }
    // False in a forked child if the parent created the handle.
    bool belongsToThisProcess() const { return forks_before == platform::forkCount(); }

  private:
    std::uint32_t value;
    std::uint32_t forks_before = platform::forkCount();
};

}  // namespace KelvonClip
