// Reading ahead on a host that gives the task pool no thread.
#include <cerrno>
#include <cstdint>
#include <memory>

#include <gtest/gtest.h>
#include <sys/syscall.h>

#include "audio/memory_units.h"
#include "audio/unit_read_ahead.h"
#include "refusing_host.h"

namespace KelvonClip::hemlock {
namespace {

TEST(UnitReadAheadWithoutThreads, ReadsEveryUnitOnTheCallersThread) {
    constexpr AudioTrackShape SHAPE{VideoFrequency::f60, 2, 0};
    constexpr std::uint32_t UNITS = 100;
    auto const track = std::make_shared<model::MemoryUnits>(SHAPE);
    for (std::uint32_t unit = 0; unit < UNITS; ++unit) {
        track->units.emplace_back(SHAPE.unitSize());
        model::put32(track->units.back().data(), unit + 1);
    }
    // The child would count them for ever: the threads that run them are not in it.
    ASSERT_TRUE(UnitReadAhead::waitForTasks(60000)) << "tasks of other cases";
    EXPECT_TRUE(test::inChild([&] {
        if (!test::forbid(__NR_clone3, EAGAIN) || !test::forbid(__NR_clone, EAGAIN)) return false;
        UnitReadAhead ahead(track, SHAPE.unitSize());
        for (std::uint32_t index = 0; index < UNITS; ++index) {
            UnitReadAhead::Unit unit{};
            if (!ahead.next(unit).empty() || unit.index != index) return false;
            if (*unit.words != static_cast<std::int32_t>(index + 1)) return false;
        }
        return UnitReadAhead::waitForTasks(0);  // no task is counted that was never accepted
    }));
}

}  // namespace
}  // namespace KelvonClip::hemlock
