// The time at which a wait ends, or never.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>

#include "platform/wait.h"

namespace KelvonClip::platform {

class Deadline {
  public:
    using Clock = std::chrono::steady_clock;

    explicit Deadline(std::uint32_t timeout_ms)
        : endless(timeout_ms == WAIT_FOREVER),
          moment(endless ? Clock::time_point::max() : Clock::now() + std::chrono::milliseconds(timeout_ms)) {}

    bool forever() const { return endless; }
    Clock::time_point at() const { return moment; }
    bool passed() const { return !endless && Clock::now() >= moment; }
    // The remaining time, never negative. Only for a deadline that is not forever.
    std::chrono::nanoseconds left() const { return std::max(moment - Clock::now(), Clock::duration::zero()); }

  private:
    bool endless;
    Clock::time_point moment;
};

}  // namespace KelvonClip::platform
