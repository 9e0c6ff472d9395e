#include "audio/unit_read_ahead.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <mutex>

#include "foundation/ksemaphore.h"
#include "platform/process_end.h"
#include "platform/task_pool.h"
#include "platform/transfer_memory.h"

namespace KelvonClip::hemlock {

namespace {

// Counts the tasks of all readers that the pool still holds, so that the library's code is not unloaded under them.
// Never destroyed: a task may end after everything else.
class TaskCount {
  public:
    static TaskCount& process() {
        static auto& count = *new TaskCount;
        return count;
    }
    void begin() {
        std::lock_guard const lock(mutex);
        ++tasks;
    }
    void end() {
        std::lock_guard const lock(mutex);
        if (--tasks == 0) none_left.notify_all();
    }
    bool waitForNone(std::chrono::seconds at_most) {
        if (platform::otherThreadsAreGone()) return false;  // and with them what they ran
        std::unique_lock lock(mutex);
        return none_left.wait_for(lock, at_most, [this] { return tasks == 0; });
    }

  private:
    std::mutex mutex;
    std::condition_variable none_left;
    std::uint64_t tasks = 0;
};

}  // namespace

// Some consecutive units that are read together.
//
//   idle --offer--> offered --claim--> (being read by the claimer) --> idle
//
// Whoever claims an offered run reads it: a pool task, which then posts `done`, or the reader itself. A task that finds
// nothing to claim does nothing; it may also find the run offered again, and serve that.
class UnitReadAhead::Run : public std::enable_shared_from_this<Run> {
  public:
    Run(std::shared_ptr<TrackUnits> track_units, std::uint32_t unit_size_in_bytes, std::shared_ptr<std::byte> place)
        : units(std::move(track_units)), unit_size(unit_size_in_bytes), memory(std::move(place)) {}

    // The range that is read, and how many of its units have been handed out. The reader's alone while the run is not
    // offered.
    std::uint64_t first = 0;
    std::uint32_t count = 0, handed_out = 0;
    std::uint32_t open_blocks = 0;
    std::array<KString, UNITS_PER_RUN> errors;

    std::int32_t* wordsOf(std::uint32_t index) {
        return reinterpret_cast<std::int32_t*>(memory.get() + std::size_t{index} * unit_size);
    }

    void offer() {
        read_finished = false;
        offered.store(true);
        if (task_in_pool.exchange(true)) return;  // the earlier task has not started yet and will serve this offer
        TaskCount::process().begin();
        held_by_task = shared_from_this();
        try {
            platform::runInBackground([this] { runTask(*this); });
        } catch (std::exception const&) {
            // The host takes no more tasks: the reader will claim the run when it needs it.
            held_by_task.reset();
            task_in_pool.store(false);
            TaskCount::process().end();
        }
    }

    // Waits until the run has been read, or reads it.
    void await() {
        if (read_finished) return;
        if (claim())
            read();
        else
            done.wait();
        read_finished = true;
    }

    // Leaves nothing to begin. What a task has begun goes on.
    void withdrawOffer() {
        if (!read_finished && claim()) read_finished = true;
    }

    // Waits until nobody reads the run and nobody will.
    void withdraw() {
        withdrawOffer();
        if (!read_finished) done.wait();
        read_finished = true;
    }

  private:
    bool claim() { return offered.exchange(false); }

    // The task: holds the run until it is done with it, and lets go of it before it counts as gone.
    static void runTask(Run& run) {
        auto held = std::move(run.held_by_task);
        run.task_in_pool.store(false);
        held->serve();
        held.reset();
        TaskCount::process().end();
    }

    void serve() {
        if (!claim()) return;
        read();
        done.post();
    }

    // A unit number beyond 32 bits is past the end of every track.
    void read() noexcept {
        auto const first_unit = static_cast<std::uint32_t>(std::min<std::uint64_t>(first, UINT32_MAX));
        try {
            units->read(first_unit, count, memory.get(), errors.data());
        } catch (std::exception const& fault) {
            failAll(fault.what());
        }
    }

    void failAll(char const* text) noexcept {
        try {
            std::fill_n(errors.data(), count, KString(text));
        } catch (std::exception const&) {
            // Not even memory for a text: one of three letters needs none.
            std::fill_n(errors.data(), count, KString("???"));
        }
    }

    std::shared_ptr<TrackUnits> const units;
    std::uint32_t const unit_size;
    std::shared_ptr<std::byte> const memory;  // UNITS_PER_RUN units
    KSemaphore done{0};                       // posted once for every reading by a task
    std::atomic<bool> offered = false;
    std::atomic<bool> task_in_pool = false;
    std::shared_ptr<Run> held_by_task;  // the offerer's while no task is in the pool, then the task's
    bool read_finished = true;          // the reader's: nothing is under way, and what was has been waited for
};

UnitReadAhead::UnitReadAhead(std::shared_ptr<TrackUnits> track_units, std::uint32_t unit_size_in_bytes)
    : units(std::move(track_units)), unit_size(unit_size_in_bytes) {
    pending.reserve(RUNS_AHEAD);
}

UnitReadAhead::~UnitReadAhead() {
    for (auto const& run : pending)
        run->withdraw();
}

KString UnitReadAhead::next(Unit& unit) {
    if (!pending.empty() && pending.front()->handed_out == pending.front()->count) {
        finished.push_back(pending.front());
        pending.erase(pending.begin());
    }
    keepReading();
    Run& run = *pending.front();
    run.await();
    std::uint32_t const index = run.handed_out;
    if (!run.errors[index].empty()) {
        KString error = std::move(run.errors[index]);
        startAgainAt(run.first + index);
        return error;
    }
    ++run.handed_out;
    unit = {run.first + index, run.wordsOf(index), &run.open_blocks};
    return {};
}

// Past the end units are asked for one by one, because the track may have grown by the time the next one is needed.
void UnitReadAhead::keepReading() {
    if (pending.size() == RUNS_AHEAD) return;
    std::uint64_t const length = units->lengthInUnits();
    while (pending.empty() || (pending.size() < RUNS_AHEAD && next_unread < length)) {
        auto run = spareRun();
        run->first = next_unread;
        run->count = next_unread < length
                         ? static_cast<std::uint32_t>(std::min<std::uint64_t>(UNITS_PER_RUN, length - next_unread))
                         : 1;
        run->handed_out = 0;
        pending.push_back(run);
        run->offer();
        next_unread += run->count;
    }
}

void UnitReadAhead::withdrawOffers() {
    for (auto const& run : pending)
        run->withdrawOffer();
}

void UnitReadAhead::startAgainAt(std::uint64_t unit) {
    for (auto const& run : pending)
        run->withdraw();
    finished.insert(finished.end(), pending.begin(), pending.end());
    pending.clear();
    next_unread = unit;
}

std::shared_ptr<UnitReadAhead::Run> UnitReadAhead::spareRun() {
    auto const spare = std::ranges::find_if(finished, [](auto const& run) { return run->open_blocks == 0; });
    if (spare == finished.end()) return std::make_shared<Run>(units, unit_size, placeForRun());
    auto run = *spare;
    finished.erase(spare);
    return run;
}

// Enough for all runs of a reader whose subchannels keep in step comes in one piece, which can lie in huge pages.
std::shared_ptr<std::byte> UnitReadAhead::placeForRun() {
    std::size_t const run_size = std::size_t{UNITS_PER_RUN} * unit_size;
    if (places_left == 0) {
        memory = platform::allocateTransferMemory(RUNS_IN_STEP * run_size);
        places_left = RUNS_IN_STEP;
    }
    --places_left;
    return {memory, memory.get() + places_left * run_size};
}

bool UnitReadAhead::waitForTasks(std::chrono::seconds at_most) { return TaskCount::process().waitForNone(at_most); }

}  // namespace KelvonClip::hemlock
