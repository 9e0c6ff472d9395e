// Reads the units of a track ahead of the one who needs them, and hands them over in order.
//
// A background task reads run after run of units. Whoever has to wait for the run that the task is at reads, meanwhile,
// one that it has not begun. So a pool that is kept busy by slow readers costs another reader its head start, never its
// progress.
//
//   track:    ... | run being handed out | run on its way | run on its way | not asked for yet ...
//                   ^ next unit
//
// Invariants
//   * At most RUNS_AHEAD runs exist at a time beyond those whose blocks are still wanted.
//   * A reader has at most one task in the pool, which reads as long as there is something to read: a run more costs no
//     thread a wake-up, and a few slow readers leave the pool to the others.
//   * Nothing is read ahead beyond the track's end as it was known then, so a reader that follows a recording sees
//     every unit that was written before it asked for it.
//   * After a failure the next unit is the one that failed.
// Threads: one caller at a time. Runs are read on pool threads.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "audio/audio_track.h"
#include "foundation/kstring.h"

namespace KelvonClip::hemlock {

class UnitReadAhead {
  public:
    // Eight units at once keep a disk busy, and are worth a change of hands even on a track of small units (two
    // subchannels: 64 KiB); four runs leave the task something to do while one is being handed out. That is 0.5 to 1.3
    // seconds of sound ahead, 5 MiB at most for a reader.
    static constexpr std::uint32_t UNITS_PER_RUN = 8;
    static constexpr std::size_t RUNS_AHEAD = 4;
    static constexpr std::size_t RUNS_IN_STEP = RUNS_AHEAD + 1;  // one more, of which the last samples are still wanted

    // A unit in memory. It stays there until *open_blocks, which its user raises and lowers, is back at zero; what the
    // user does not raise before the next call of `next` is not kept.
    struct Unit {
        std::uint64_t index;
        std::int32_t* words;
        std::uint32_t* open_blocks;
    };

    UnitReadAhead(std::shared_ptr<TrackUnits> track_units, std::uint32_t unit_size_in_bytes);
    // Waits for what is under way.
    ~UnitReadAhead();
    UnitReadAhead(UnitReadAhead const&) = delete;
    UnitReadAhead& operator=(UnitReadAhead const&) = delete;

    // Waits for the next unit. On a failure gives the unit's message, and the next call tries that unit again.
    KString next(Unit& unit);

    // Leaves no run for the task to begin; what is being read goes on. For the end of the library.
    void cancelQueued();
    // Waits until no task of any reader is left in the pool; false when the time was too short.
    static bool waitForTasks(std::chrono::seconds at_most);
    // How many tasks of all readers the pool holds; for tests.
    static std::uint64_t tasksInPool();

  private:
    class Run;
    class Queue;

    void queueRuns();
    void await(Run& wanted);
    void cancelAndWait();
    void restartAt(std::uint64_t unit);
    std::shared_ptr<Run> spareRun();
    std::shared_ptr<std::byte> allocateRun();

    std::shared_ptr<TrackUnits> const units;
    std::uint32_t const unit_size;
    std::shared_ptr<Queue> const queue;          // of the pending runs, those that nobody has begun to read
    std::uint64_t next_unread = 0;               // the first unit that no run covers
    std::vector<std::shared_ptr<Run>> pending;   // in unit order; the first is being handed out
    std::shared_ptr<std::byte[]> memory;         // of the latest runs; each holds on to its part
    std::size_t runs_left = 0;                   // runs that `memory` has room for
    std::vector<std::shared_ptr<Run>> finished;  // handed out; reused once their blocks are no longer wanted
};

}  // namespace KelvonClip::hemlock
