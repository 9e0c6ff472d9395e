// Counts objects or operations in progress, and waits until there are none.
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

    // Waits alertably until the count is 0. False if the time-out expires, or if the host has terminated the other
    // threads, which will never decrement it.
    bool waitForNone(std::uint32_t timeout_ms);

  private:
    std::mutex mutex;
    std::uint64_t live = 0;
    std::vector<KSemaphore*> waiting;
};

}  // namespace KelvonClip
