// Counts what is still in use, so that whoever ends the library can wait for the last of it.
//
// Threads: any.
#pragma once

#include <cstdint>
#include <mutex>
#include <vector>

namespace KelvonClip {

class KSemaphore;

class LiveCount {
  public:
    void add();
    void remove();
    std::uint64_t count();

    // Waits alertably until the count is 0. False: the time passed first, or the host has ended the other threads, which
    // take down nothing any more.
    bool waitForNone(std::uint32_t timeout_ms);

  private:
    std::mutex mutex;
    std::uint64_t live = 0;
    std::vector<KSemaphore*> waiting;
};

}  // namespace KelvonClip
