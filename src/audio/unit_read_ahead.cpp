#include "audio/unit_read_ahead.h"

#include <algorithm>
#include <array>
#include <exception>
#include <mutex>
#include <new>
#include <utility>

#include "foundation/exported.h"
#include "foundation/ksemaphore.h"
#include "foundation/live_count.h"
#include "foundation/locked.h"
#include "foundation/never_destroyed.h"
#include "platform/task_pool.h"
#include "platform/transfer_memory.h"

namespace KelvonClip::hemlock {

namespace {

// The number of tasks of all readers in the pool. The library must not be unloaded while one is running. Never
// destroyed, because a task may end after static objects are destroyed.
LiveCount& tasks() {
    static auto& count = neverDestroyed<LiveCount>();
    return count;
}

}  // namespace

// Consecutive units that are read together.
//
// A run is queued until either the background task or the reader takes it out and reads it. The background task posts
// `done` afterwards; the reader, which is the only one to wait for `done`, does not.
class UnitReadAhead::Run {
  public:
    Run(std::shared_ptr<TrackUnits> track_units, std::uint32_t unit_size_in_bytes, std::shared_ptr<std::byte> place)
        : units(std::move(track_units)), unit_size(unit_size_in_bytes), memory(std::move(place)) {}

    // The range of units, and how many of them have been handed out. Accessed by the reader only, unless the run is
    // being read.
    std::uint64_t first = 0;
    std::uint32_t count = 0, handed_out = 0;
    std::uint32_t open_blocks = 0;
    std::array<KString, UNITS_PER_RUN> errors;

    std::int32_t* wordsOf(std::uint32_t index) {
        return reinterpret_cast<std::int32_t*>(memory.get() + std::size_t{index} * unit_size);
    }

    // Memory ran out while the run was read: none of its units can be used.
    bool outOfMemory() const { return out_of_memory; }

    // Called by the background task.
    void readInBackground() noexcept {
        read();
        done.post();
    }

    // Called by the reader. A run is pending from markPending until it has been read or cancelled.
    void markPending() { read_finished = false; }
    bool isRead() { return read_finished || waitUntilRead(0); }
    bool waitUntilRead(std::uint32_t timeout_ms = KSemaphore::FOREVER) {
        read_finished = done.wait(1, timeout_ms);
        return read_finished;
    }
    void readHere() {
        read();
        read_finished = true;
    }
    void markCancelled() { read_finished = true; }

  private:
    // A unit number above 32 bits is past the end of every track.
    void read() noexcept {
        auto const first_unit = static_cast<std::uint32_t>(std::min<std::uint64_t>(first, UINT32_MAX));
        out_of_memory = false;
        try {
            units->read(first_unit, count, memory.get(), errors.data());
        } catch (std::bad_alloc const&) {
            out_of_memory = true;
        } catch (std::exception const& fault) {
            failAll(fault);
        }
    }

    void failAll(std::exception const& fault) noexcept {
        try {
            std::fill_n(errors.data(), count, faultText(fault));
        } catch (std::bad_alloc const&) {
            out_of_memory = true;
        }
    }

    std::shared_ptr<TrackUnits> const units;
    std::uint32_t const unit_size;
    std::shared_ptr<std::byte> const memory;  // UNITS_PER_RUN units
    KSemaphore done{0};                       // posted after each read by the background task
    bool read_finished = true;                // accessed by the reader only: the run is not pending
    bool out_of_memory = false;
};

// The runs that nobody has started to read, in unit order, and the task that reads them until none is left.
// Threads: any.
class UnitReadAhead::Queue : public std::enable_shared_from_this<Queue> {
  public:
    // Allocates what adding a run needs, so that it cannot fail half-way.
    Queue() {
        waiting.reserve(RUNS_AHEAD);
        static_cast<void>(tasks());
    }

    void add(std::shared_ptr<Run> run) {
        {
            auto const lock = locked(mutex);
            waiting.push_back(std::move(run));
            if (held_by_task) return;
            held_by_task = shared_from_this();
        }
        tasks().add();
        try {
            platform::runInBackground([this] { readAll(*this); });
        } catch (std::exception const&) {
            // The host accepts no more tasks: the reader will read the run itself when it needs it.
            {
                auto const lock = locked(mutex);
                held_by_task.reset();
            }
            tasks().remove();
        }
    }

    // Takes the run out of the queue; false if somebody has already started to read it.
    bool take(Run const& run) {
        auto const lock = locked(mutex);
        return std::erase_if(waiting, [&](auto const& each) { return each.get() == &run; }) > 0;
    }

  private:
    // The task. The queue may be destroyed once `held` is reset.
    static void readAll(Queue& queue) {
        std::shared_ptr<Queue> held;
        while (auto const run = queue.takeFirst(held))
            run->readInBackground();
        held.reset();
        tasks().remove();
    }

    // The next run for the task. If there is none, moves the task's reference to the queue into `held`; a run that is
    // added from then on starts a new task.
    std::shared_ptr<Run> takeFirst(std::shared_ptr<Queue>& held) {
        auto const lock = locked(mutex);
        if (waiting.empty()) {
            held = std::move(held_by_task);
            return nullptr;
        }
        auto run = std::move(waiting.front());
        waiting.erase(waiting.begin());
        return run;
    }

    std::mutex mutex;
    std::vector<std::shared_ptr<Run>> waiting;
    std::shared_ptr<Queue> held_by_task;  // this queue, while a task is in the pool
};

UnitReadAhead::UnitReadAhead(std::shared_ptr<TrackUnits> track_units, std::uint32_t unit_size_in_bytes)
    : units(std::move(track_units)), unit_size(unit_size_in_bytes), queue(std::make_shared<Queue>()) {
    pending.reserve(RUNS_AHEAD);
}

UnitReadAhead::~UnitReadAhead() { cancelAndWait(); }

KString UnitReadAhead::next(Unit& unit) {
    if (!pending.empty() && pending.front()->handed_out == pending.front()->count) {
        finished.push_back(pending.front());
        pending.erase(pending.begin());
    }
    queueRuns();
    Run& run = *pending.front();
    await(run);
    if (run.outOfMemory()) run.readHere();  // there may be memory again
    if (run.outOfMemory()) throw std::bad_alloc();
    std::uint32_t const index = run.handed_out;
    if (!run.errors[index].empty()) {
        KString error = std::move(run.errors[index]);
        restartAt(run.first + index);
        return error;
    }
    ++run.handed_out;
    unit = {run.first + index, run.wordsOf(index), &run.open_blocks};
    return {};
}

// Past the end, units are read one by one, because the track may have grown when the next one is needed.
void UnitReadAhead::queueRuns() {
    if (pending.size() == RUNS_AHEAD) return;
    std::uint64_t const length = units->lengthInUnits();
    while (pending.empty() || (pending.size() < RUNS_AHEAD && next_unread < length)) {
        finished.reserve(finished.size() + pending.size() + 1);  // so that moving runs there cannot fail
        auto run = spareRun();
        run->first = next_unread;
        run->count = next_unread < length
                         ? static_cast<std::uint32_t>(std::min<std::uint64_t>(UNITS_PER_RUN, length - next_unread))
                         : 1;
        run->handed_out = 0;
        run->markPending();
        pending.push_back(run);
        queue->add(run);
        next_unread += run->count;
    }
}

// Waits until the run has been read. As long as there are queued runs, reads them here instead of sleeping: when the
// data is in memory already, reading is CPU work, and two threads take half the time.
void UnitReadAhead::await(Run& wanted) {
    while (!wanted.isRead()) {
        auto const queued = std::ranges::find_if(pending, [&](auto const& run) { return queue->take(*run); });
        if (queued == pending.end())
            wanted.waitUntilRead();
        else
            (*queued)->readHere();
    }
}

void UnitReadAhead::cancelQueued() {
    for (auto const& run : pending)
        if (queue->take(*run)) run->markCancelled();
}

// Cancels the queued runs and waits for the one being read.
void UnitReadAhead::cancelAndWait() {
    cancelQueued();
    for (auto const& run : pending)
        await(*run);
}

void UnitReadAhead::restartAt(std::uint64_t unit) {
    cancelAndWait();
    finished.insert(finished.end(), pending.begin(), pending.end());
    pending.clear();
    next_unread = unit;
}

std::shared_ptr<UnitReadAhead::Run> UnitReadAhead::spareRun() {
    auto const spare = std::ranges::find_if(finished, [](auto const& run) { return run->open_blocks == 0; });
    if (spare != finished.end()) {
        auto run = *spare;
        finished.erase(spare);
        return run;
    }
    auto run = std::make_shared<Run>(units, unit_size, nextRunMemory());
    --runs_left;
    return run;
}

// The memory for all runs that a reader normally needs is allocated at once, so that it can use huge pages.
std::shared_ptr<std::byte> UnitReadAhead::nextRunMemory() {
    std::size_t const run_size = std::size_t{UNITS_PER_RUN} * unit_size;
    if (runs_left == 0) {
        memory = platform::allocateTransferMemory(RUNS_IN_STEP * run_size);
        runs_left = RUNS_IN_STEP;
    }
    return {memory, memory.get() + (runs_left - 1) * run_size};
}

bool UnitReadAhead::waitForTasks(std::uint32_t timeout_ms) { return tasks().waitForNone(timeout_ms); }

std::uint64_t UnitReadAhead::tasksInPool() { return tasks().count(); }

}  // namespace KelvonClip::hemlock
