// The rules of a transfer, one step at a time: what the next call is, and what its result means.
#include "platform/linux/transfer.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>

#include <gtest/gtest.h>
#include <unistd.h>

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

TEST_F(TransferTest, OnlyDirectTransfersOfAdjacentRangesInOneDirectionContinue) {
    Transfer const before = transfer(0, 4096, true);
    EXPECT_TRUE(transfer(4096, 4096, true).continues(before));
    EXPECT_FALSE(transfer(8192, 4096, true).continues(before)) << "a gap";
    EXPECT_FALSE(transfer(4096, 4096, false).continues(before)) << "a read";
    EXPECT_FALSE(transfer(4096, 100, true).continues(before)) << "buffered";
    EXPECT_FALSE(transfer(4096, 0, true).continues(before)) << "nothing";
    Transfer begun = transfer(4096, 4096, true);
    begun.transferred = 512;
    EXPECT_FALSE(begun.continues(before)) << "begun already";
    Descriptors other_file;
    other_file.direct = DIRECT + 1;
    Transfer of_other = transfer(4096, 4096, true);
    of_other.file = &other_file;
    EXPECT_FALSE(of_other.continues(before));
}

// The file ends inside the second of three: the first is done, a part of the second, and nothing of the third.
TEST_F(TransferTest, AJoinedCallThatStopsEarlyLeavesTheRestToEach) {
    std::FILE* const scratch = std::tmpfile();
    ASSERT_NE(scratch, nullptr);
    file.direct = file.buffered = ::fileno(scratch);
    Transfer all[] = {transfer(0, 4096, true), transfer(4096, 4096, true), transfer(8192, 4096, true)};
    all[0].next = &all[1];
    all[1].next = &all[2];
    memory.fill(std::byte{0x42});
    runJoined(all[0], 3);
    for (Transfer const& each : all)
        EXPECT_EQ(each.transferred, 4096u);

    ASSERT_EQ(::ftruncate(file.direct, 6144), 0);
    memory.fill(std::byte{0});
    for (Transfer& each : all) {
        each.writing = false;
        each.transferred = 0;
    }
    runJoined(all[0], 3);
    EXPECT_EQ(all[0].transferred, 4096u);
    EXPECT_EQ(all[1].transferred, 2048u);
    EXPECT_EQ(all[2].transferred, 0u);
    EXPECT_EQ(memory[6143], std::byte{0x42});
    EXPECT_EQ(memory[6144], std::byte{0});
    for (Transfer& each : all)
        each.runBlocking();
    EXPECT_FALSE(all[0].failed);
    EXPECT_FALSE(all[1].failed) << "a read that reaches the end succeeds";
    EXPECT_TRUE(all[2].failed) << "one behind the end fails";
    std::fclose(scratch);
}

}  // namespace
}  // namespace KelvonClip::platform
