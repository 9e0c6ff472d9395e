#include <thread>

#include <gtest/gtest.h>

#include "clip/clip_name_turn.h"
#include "refusing_host.h"
#include "support/latch.h"

namespace KelvonClip {
namespace {

TEST(ClipNameTurn, AForkedChildDoesNotWaitForThreadsThatItDoesNotHave) {
    KString const name = "one";
    test::Latch taken(1), over(1);
    std::thread holder([&] {
        ClipNameTurn const turn(name);
        taken.count_down();
        over.wait();
    });
    taken.wait();
    EXPECT_TRUE(test::inChild([&] {
        { ClipNameTurn const first(name); }
        ClipNameTurn const second(name);
        ClipNameTurn const nested(name);
        return true;
    }));
    over.count_down();
    holder.join();
}

}  // namespace
}  // namespace KelvonClip
