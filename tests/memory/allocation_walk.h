// What the tests of this program share: walks in which the library has nothing in reserve, and leaves nothing behind.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
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
            std::int64_t const before = Memory::allocated();
            expectNoHandlesLeft([&] { round(walk); });
            if (walk.allocation() == 0) continue;  // what is kept for later is made now
            EXPECT_LE(Memory::allocated(), before + kept);
        }
        EXPECT_GT(walk.allocation(), 5u) << "the walk has to have met an allocation";
        RecordProperty("rounds", std::to_string(walk.allocation()));
    }

  private:
    // Windows opens some handles once and for all: at the first exception of a process, and when two threads first meet
    // at a mutex. So a round that leaves handles behind is run again: a leak recurs.
    static void expectNoHandlesLeft(std::function<void()> const& round) {
        constexpr int TRIES = 4;
        std::size_t before = 0, after = 0;
        for (int tries = 0; tries < TRIES && (tries == 0 || after != before) && !HasFailure(); ++tries) {
            before = openHandles();
            round();
            hemlock::UnitReadAhead::waitForTasks(60000);
            after = openHandles();
        }
        EXPECT_EQ(after, before);
    }
};

inline auto bothFailures() { return testing::Values(Failures::one, Failures::all_from_there_on); }
inline std::string nameOf(testing::TestParamInfo<Failures> const& which) {
    return which.param == Failures::one ? "OneFails" : "AllFailFromThereOn";
}

}  // namespace KelvonClip::test
