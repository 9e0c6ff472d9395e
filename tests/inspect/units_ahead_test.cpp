// Reading ahead: order, the units under way, and every way to end in the middle. The requests are kept by the test, and
// completed when and in the order it likes.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "foundation/kstring.h"
#include "inspect/units_ahead.h"
#include "vfile/vfileobject.h"

namespace KelvonClip::inspect {

namespace {

using Done = std::shared_ptr<CIO::CIOObject>;
constexpr std::uint32_t SIZE = 512 * 1024;

struct Request {
    std::uint64_t unit;
    std::byte* into;
    Done done;

    void complete() {
        *into = std::byte(unit + 1);
        done.reset();
    }
};

class UnitsAheadTest : public testing::Test {
  protected:
    UnitsAhead make(std::uint32_t size = SIZE) {
        return UnitsAhead(
            size,
            [this](std::uint64_t unit, std::byte* into, Done done) {
                EXPECT_EQ(reinterpret_cast<std::uintptr_t>(into) % 4096, 0u);
                if (unit == refused) throw std::length_error("refused");
                requests.push_back({unit, into, std::move(done)});
                most_under_way = std::max(most_under_way, requests.size());
                if (at_once) completeAll();
            },
            [this](std::uint64_t unit, std::byte const* bytes, KString const& error) {
                if (unit == unwanted) throw std::length_error("unwanted");
                EXPECT_TRUE(!error.empty() || *bytes == std::byte(unit + 1));
                used.push_back(std::to_string(unit) + error.toUtf8());
            });
    }
    // The last one first.
    void completeAll() {
        while (!requests.empty()) {
            requests.back().complete();
            requests.pop_back();
        }
    }

    std::optional<std::uint64_t> refused, unwanted;
    bool at_once = false;
    std::vector<Request> requests;
    std::vector<std::string> used;
    std::size_t most_under_way = 0;
};

TEST_F(UnitsAheadTest, ReadsSeveralAtOnceAndUsesThemInOrder) {
    UnitsAhead ahead = make();
    for (std::uint64_t unit = 0; unit < 8; ++unit)
        ahead.push(unit);
    EXPECT_EQ(requests.size(), 8u);
    EXPECT_EQ(used, std::vector<std::string>());
    completeAll();
    at_once = true;
    for (std::uint64_t const unit : {20u, 10u, 30u})
        ahead.push(unit);
    EXPECT_EQ(used, (std::vector<std::string>{"0", "1", "2"}));
    ahead.finish();
    EXPECT_EQ(used, (std::vector<std::string>{"0", "1", "2", "3", "4", "5", "6", "7", "20", "10", "30"}));
    ahead.finish();
    EXPECT_EQ(used.size(), 11u);
}

TEST_F(UnitsAheadTest, SmallUnitsAreManyButNotWithoutEndAndLargeOnesTwo) {
    struct {
        std::uint32_t size;
        std::uint64_t at_once;
    } const rows[] = {{1, 32}, {512, 32}, {4096, 32}, {131072, 32}, {131073, 31}, {1 << 20, 4}, {64 << 20, 2}};
    for (auto const& [size, most] : rows) {
        UnitsAhead ahead = make(size);
        for (std::uint64_t unit = 0; unit < most; ++unit)
            ahead.push(unit);
        EXPECT_EQ(requests.size(), most) << size;
        EXPECT_TRUE(used.empty()) << size;
        completeAll();
        at_once = true;
        ahead.push(most);
        EXPECT_EQ(used.size(), 1u) << size;
        ahead.finish();
        used.clear();
        at_once = false;
    }
}

TEST_F(UnitsAheadTest, AUnitThatCannotBeReadIsUsedWithItsErrorAndTheOthersGoOn) {
    UnitsAhead ahead = make();
    for (std::uint64_t unit = 0; unit < 3; ++unit)
        ahead.push(unit);
    requests[1].done->setError("Read failed");
    completeAll();
    ahead.finish();
    EXPECT_EQ(used, (std::vector<std::string>{"0", "1Read failed", "2"}));
    at_once = true;
    ahead.push(1);  // the same slot again: the error is not carried on
    ahead.push(1);
    ahead.finish();
    EXPECT_EQ(used.back(), "1");
}

TEST_F(UnitsAheadTest, ALackOfMemoryEndsIt) {
    UnitsAhead ahead = make();
    ahead.push(0);
    requests[0].done->setOutOfMemory();
    completeAll();
    EXPECT_THROW(ahead.finish(), std::bad_alloc);
    ahead.finish();
    EXPECT_TRUE(used.empty());
}

TEST_F(UnitsAheadTest, AReadThatCannotBeStartedEndsIt) {
    at_once = true;
    refused = 2;
    UnitsAhead ahead = make();
    ahead.push(0);
    ahead.push(1);
    EXPECT_THROW(ahead.push(2), std::length_error);
}

TEST_F(UnitsAheadTest, WhatCannotBeUsedEndsItAndTheRestIsWaitedFor) {
    at_once = true;
    unwanted = 1;
    UnitsAhead ahead = make();
    for (std::uint64_t unit = 0; unit < 5; ++unit)
        ahead.push(unit);
    EXPECT_THROW(ahead.finish(), std::length_error);
    EXPECT_EQ(used, (std::vector<std::string>{"0"}));
}

TEST_F(UnitsAheadTest, NothingIsTakenForATrackThatIsNotRead) {
    UnitsAhead ahead = make(1u << 30);  // twice
    ahead.finish();
}

}  // namespace

}  // namespace KelvonClip::inspect
