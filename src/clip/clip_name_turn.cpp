#include "clip/clip_name_turn.h"

#include <atomic>
#include <cstdint>
#include <mutex>

#include "foundation/locked.h"
#include "foundation/never_destroyed.h"
#include "platform/host.h"

namespace KelvonClip {

namespace {

struct Turns {
    std::mutex mutex;
    // Counts the ends of turns. Not a condition variable: in a forked child it would wait for waiters of the parent.
    std::atomic<std::uint32_t> ended{0};
    ClipNameTurn* first = nullptr;
    std::uint32_t forks_before = 0;

    // In a forked child, forgets the turns of the parent: they are on the stacks of threads that it does not have.
    void forgetTheParents() {
        if (forks_before == platform::forkCount()) return;
        forks_before = platform::forkCount();
        first = nullptr;
    }
};

Turns& turns() {
    static auto& all = neverDestroyed<Turns>();
    return all;
}

}  // namespace

bool ClipNameTurn::keepsWaiting(ClipNameTurn const& other) const {
    return other.thread != thread && other.name == name;
}

ClipNameTurn::ClipNameTurn(KString const& clip_name) : name(clip_name), forks_before(platform::forkCount()) {
    auto lock = locked(turns().mutex);
    turns().forgetTheParents();
    auto const isTaken = [this] {
        for (ClipNameTurn const* turn = turns().first; turn != nullptr; turn = turn->next)
            if (keepsWaiting(*turn)) return true;
        return false;
    };
    while (!platform::otherThreadsAreGone() && isTaken()) {
        std::uint32_t const ended_before = turns().ended.load();
        lock.unlock();
        turns().ended.wait(ended_before);
        lock.lock();
    }
    next = turns().first;
    turns().first = this;
}

ClipNameTurn::~ClipNameTurn() {
    if (forks_before != platform::forkCount()) return;  // it is the parent's
    {
        auto const lock = locked(turns().mutex);
        ClipNameTurn** at = &turns().first;
        while (*at != this)
            at = &(*at)->next;
        *at = next;
        ++turns().ended;
    }
    turns().ended.notify_all();
}

}  // namespace KelvonClip
