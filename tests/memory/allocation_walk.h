// What the tests of this program share: walks in which the library has nothing in reserve, and leaves nothing behind.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "audio/unit_read_ahead.h"
#include "open_handles.h"
#include "platform/recycled_memory.h"
#include "support/failing_memory.h"

namespace KelvonClip::test {

// Takes the memory that the library keeps for its small records, so that it has to be allocated again.
class NothingRecycled {
  public:
    NothingRecycled() {
        for (std::size_t bytes = 64; bytes <= 512; bytes += 64)
            for (int spares = 0; spares < 64; ++spares)
                taken.emplace_back(platform::takeRecycled(bytes), bytes);
    }
    ~NothingRecycled() {
        for (auto const& [memory, bytes] : taken)
            platform::giveRecycled(memory, bytes);
    }
    NothingRecycled(NothingRecycled const&) = delete;
    NothingRecycled& operator=(NothingRecycled const&) = delete;

  private:
    std::vector<std::pair<void*, std::size_t>> taken;
};

class BothFailures : public testing::TestWithParam<Failures> {
  protected:
    // Runs the operation in which an allocation fails.
    static void run(AllocationWalk& failing, std::function<void()> const& operation) {
        NothingRecycled const nothing_recycled;
        failing.run(operation);
    }

    // Runs the rounds of a walk. No round leaves descriptors behind, nor memory, `kept` allocations apart.
    static void walk(std::function<void(AllocationWalk&)> const& round, std::int64_t kept = 0) {
        AllocationWalk walk(GetParam());
        while (walk.next() && !HasFailure()) {
            SCOPED_TRACE(testing::Message() << "allocation " << walk.allocation());
            // In the first round what is kept for later is made.
            expectNothingLeft([&] { round(walk); }, walk.allocation() == 0 ? ANY_NUMBER : kept);
        }
        EXPECT_GT(walk.allocation(), 5u) << "the walk has to have met an allocation";
        RecordProperty("rounds", std::to_string(walk.allocation()));
    }

  private:
    static constexpr std::int64_t ANY_NUMBER = std::numeric_limits<std::int64_t>::max() / 2;

    // Windows opens some handles once and for all: at the first exception of a process, and when two threads first
    // meet at a mutex. And a thread of the pool may end, and another one begin later. So a round that leaves something
    // behind is run again: a leak recurs.
    static void expectNothingLeft(std::function<void()> const& round, std::int64_t kept) {
        constexpr int TRIES = 4;
        struct Use {
            std::size_t handles = openHandles();
            std::int64_t allocations = Memory::allocated();
        };
        for (int tries = 1; !HasFailure(); ++tries) {
            Use const before;
            round();
            hemlock::UnitReadAhead::waitForTasks(60000);
            Use const after;
            bool const clean = after.handles <= before.handles && after.allocations <= before.allocations + kept;
            if (!clean && tries < TRIES) continue;
            EXPECT_LE(after.handles, before.handles);
            EXPECT_LE(after.allocations, before.allocations + kept);
            return;
        }
    }
};

inline auto bothFailures() { return testing::Values(Failures::one, Failures::all_from_there_on); }
inline std::string nameOf(testing::TestParamInfo<Failures> const& which) {
    return which.param == Failures::one ? "OneFails" : "AllFailFromThereOn";
}

}  // namespace KelvonClip::test
