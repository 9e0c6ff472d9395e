// Decides when a clip that is being recorded is written back automatically.
//
// Threads: any. If several threads ask when a checkpoint is due, only one of them gets it.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <optional>

#include "vfile/vfileobject.h"

namespace KelvonClip {

class CheckpointTimer {
  public:
    using Clock = std::chrono::steady_clock;

    // A killed process loses what it has recorded since the last checkpoint: by default two seconds at most.
    static constexpr std::uint32_t DEFAULT_INTERVAL_MS = 2000;

    // An interval of 0 turns checkpoints off. Restarts the timer.
    void setInterval(std::uint32_t milliseconds, Durability durability) {
        survives = durability;
        interval_ms = milliseconds;
        restart();
    }

    // Called when the clip is written back for another reason: the timer starts again with the next unit.
    void restart() { next = NOT_BEGUN; }

    // Called after each unit that was written. If a checkpoint is due, returns its durability and restarts the timer.
    std::optional<Durability> due(Clock::time_point now = Clock::now()) {
        std::uint32_t const interval = interval_ms;
        if (interval == 0) return std::nullopt;
        Ticks const at = std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count();
        Ticks expected = next.load();
        if (expected != NOT_BEGUN && at < expected) return std::nullopt;
        bool const begun = expected != NOT_BEGUN;
        if (!next.compare_exchange_strong(expected, at + interval) || !begun) return std::nullopt;
        return survives;
    }

  private:
    using Ticks = std::int64_t;  // milliseconds of the clock
    static constexpr Ticks NOT_BEGUN = -1;

    std::atomic<std::uint32_t> interval_ms{DEFAULT_INTERVAL_MS};
    std::atomic<Durability> survives{Durability::process_end};
    std::atomic<Ticks> next{NOT_BEGUN};
};

}  // namespace KelvonClip
