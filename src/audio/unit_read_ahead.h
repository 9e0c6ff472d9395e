// Reads the units of a track ahead of their use, and returns them in order.
//
// Units are read in runs. A background task reads one run after the other. A caller that would have to wait for the
// task's current run reads a queued run itself meanwhile. So when slow readers keep all threads of the pool busy, other
// readers lose their read-ahead but still make progress.
//
//   track:    ... | run in use | run being read | run queued | not requested yet ...
//                   ^ next unit
//
// Invariants
//   * At most RUNS_AHEAD runs are pending. Finished runs are kept while their blocks are still in use.
//   * A reader has at most one task in the pool; the task reads until no run is queued. So a further run needs no
//     further thread wake-up, and a few slow readers do not fill the pool.
//   * No run extends beyond the end of the track at the time when it was queued. So a reader that follows a recording
//     gets every unit that was written before it was requested.
//   * After an error the next unit is the one that failed.
// Threads: one caller at a time. Runs are read on pool threads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "audio/audio_track.h"
#include "foundation/kstring.h"

namespace KelvonClip::hemlock {

class UnitReadAhead {
  public:
    // Eight units in parallel keep a disk busy, and are enough work for a switch between threads even with small units
    // (two subchannels: 64 KiB). Four runs leave work for the task while one is in use. This is 0.5 to 1.3 seconds of
    // sound, and 5 MiB at most for each reader.
    static constexpr std::uint32_t UNITS_PER_RUN = 8;
    static constexpr std::size_t RUNS_AHEAD = 4;
    static constexpr std::size_t RUNS_IN_STEP = RUNS_AHEAD + 1;  // and one whose last samples are still in use

    // A unit in memory. The user increments *open_blocks before the next call of `next`, and decrements it when done;
    // the unit stays valid until the count is back at zero.
    struct Unit {
        std::uint64_t index;
        std::int32_t* words;
        std::uint32_t* open_blocks;
    };

    UnitReadAhead(std::shared_ptr<TrackUnits> track_units, std::uint32_t unit_size_in_bytes);
    // Cancels queued runs and waits for the one being read.
    ~UnitReadAhead();
    UnitReadAhead(UnitReadAhead const&) = delete;
    UnitReadAhead& operator=(UnitReadAhead const&) = delete;

    // Waits for the next unit; empty on success. After an error the next call tries the same unit again.
    KString next(Unit& unit);

    // The next unit is `unit`. Cancels queued runs and waits for the one being read.
    void restartAt(std::uint64_t unit);

    // Cancels queued runs, without waiting for the one being read. For the end of the library.
    void cancelQueued();
    // Waits until no task of any reader is left in the pool; false if `at_most` has passed.
    static bool waitForTasks(std::uint32_t timeout_ms);
    // How many tasks of all readers the pool holds; for tests.
    static std::uint64_t tasksInPool();

  private:
    class Run;
    class Queue;

    void queueRuns();
    void await(Run& wanted);
    void cancelAndWait();
    std::shared_ptr<Run> spareRun();
    std::shared_ptr<std::byte> nextRunMemory();

    std::shared_ptr<TrackUnits> const units;
    std::uint32_t const unit_size;
    std::shared_ptr<Queue> const queue;          // the pending runs that nobody has started to read
    std::uint64_t next_unread = 0;               // the first unit that is not in a run
    std::vector<std::shared_ptr<Run>> pending;   // in unit order; the first one is in use
    std::shared_ptr<std::byte[]> memory;         // of the latest runs, each of which shares its ownership
    std::size_t runs_left = 0;                   // runs that `memory` has room for
    std::vector<std::shared_ptr<Run>> finished;  // completely handed out; reused once none of their blocks is in use
};

}  // namespace KelvonClip::hemlock
