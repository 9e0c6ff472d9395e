// The rules of a transfer, one step at a time: what the next call is, and what its result means.
#include "platform/linux/transfer.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>

#include <gtest/gtest.h>

namespace KelvonClip::platform {
namespace {

constexpr int BUFFERED = 7, DIRECT = 8;

struct TransferTest : testing::Test {
    TransferTest() {
        file.buffered = BUFFERED;
        file.direct = DIRECT;
    }

    // Of `length` bytes at `at`, to memory that lies as the position does.
    Transfer transfer(std::uint32_t at, std::uint32_t length, bool writing = false) {
        return {.request = nullptr,
                .file = &file,
                .next = nullptr,
                .memory = memory.data() + at,
                .position = at,
                .length = length,
                .transferred = 0,
                .writing = writing,
                .failed = false,
                .step_is_direct = false,
                .buffered_only = false};
    }

    Descriptors file;
    alignas(8192) std::array<std::byte, 16384> memory{};
};

TEST_F(TransferTest, RefusedDirectStepGoesBufferedAndTheFileIsTakenForStricter) {
    Transfer refused = transfer(512, 1024);
    EXPECT_EQ(refused.nextStep().descriptor, DIRECT) << "a file that does not say otherwise wants multiples of 512";
    EXPECT_FALSE(refused.advance(-EINVAL)) << "not done";
    auto const again = refused.nextStep();
    EXPECT_EQ(again.descriptor, BUFFERED);
    EXPECT_EQ(again.memory, memory.data() + 512);
    EXPECT_EQ(again.length, 1024u);
    EXPECT_EQ(again.position, 512u);
    EXPECT_TRUE(refused.advance(1024));
    EXPECT_FALSE(refused.failed);
    EXPECT_EQ(refused.transferred, 1024u);

    EXPECT_EQ(transfer(512, 1024).nextStep().descriptor, BUFFERED);
    EXPECT_EQ(transfer(4096, 1024).nextStep().descriptor, BUFFERED);
    EXPECT_EQ(transfer(4096, 8192).nextStep().descriptor, DIRECT);
}

TEST_F(TransferTest, RefusedTransferStaysBufferedWhereItIsAlignedAgain) {
    Transfer refused = transfer(4096, 8192);
    EXPECT_EQ(refused.nextStep().descriptor, DIRECT);
    EXPECT_FALSE(refused.advance(-EINVAL));
    EXPECT_EQ(refused.nextStep().descriptor, BUFFERED);
    EXPECT_FALSE(refused.advance(4096)) << "half of it";
    EXPECT_EQ(refused.nextStep().descriptor, BUFFERED);
}

TEST_F(TransferTest, BufferedStepThatIsRefusedHasFailed) {
    Transfer odd = transfer(100, 50);
    EXPECT_EQ(odd.nextStep().descriptor, BUFFERED);
    EXPECT_TRUE(odd.advance(-EINVAL));
    EXPECT_TRUE(odd.failed);
}

TEST_F(TransferTest, InterruptedStepIsRepeated) {
    for (int error : {EINTR, EAGAIN}) {
        Transfer interrupted = transfer(4096, 4096);
        interrupted.nextStep();
        EXPECT_FALSE(interrupted.advance(-error));
        auto const again = interrupted.nextStep();
        EXPECT_EQ(again.descriptor, DIRECT);
        EXPECT_EQ(again.position, 4096u);
        EXPECT_EQ(again.length, 4096u);
        EXPECT_FALSE(interrupted.failed);
    }
}

TEST_F(TransferTest, EndOfTheFileIsAResultForAReadThatGotSomewhereAndAFailureOtherwise) {
    Transfer read = transfer(0, 8192);
    read.nextStep();
    EXPECT_FALSE(read.advance(5000));
    read.nextStep();
    EXPECT_TRUE(read.advance(0));
    EXPECT_FALSE(read.failed);
    EXPECT_EQ(read.transferred, 5000u);

    Transfer past_the_end = transfer(0, 8192), write = transfer(0, 8192, true);
    past_the_end.nextStep();
    EXPECT_TRUE(past_the_end.advance(0));
    EXPECT_TRUE(past_the_end.failed);
    write.nextStep();
    EXPECT_FALSE(write.advance(4096));
    write.nextStep();
    EXPECT_TRUE(write.advance(0));
    EXPECT_TRUE(write.failed);
}

}  // namespace
}  // namespace KelvonClip::platform
