// When a clip that is being recorded is to be written back without being told to.
//
// Threads: any; of several threads that ask when the time has come, one is told to write back.
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

    // A killed process loses what it recorded since the last checkpoint: two seconds at most, unless told otherwise.
    static constexpr std::uint32_t DEFAULT_INTERVAL_MS = 2000;

    // An interval of 0 turns checkpoints off. Begins the time anew.
    void setInterval(std::uint32_t milliseconds, Durability durability) {
        survives = durability;
        interval_ms = milliseconds;
        restart();
    }

    // Somebody else writes back now: the time begins with the next unit that is written.
    void restart() { next = NOT_BEGUN; }

    // To be asked after each unit that was written: what the checkpoint has to survive when one is due, which begins the
    // time anew.
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
