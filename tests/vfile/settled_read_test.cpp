// Reads of what another process writes at the same moment.
#include "vfile/settled_read.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <utility>

#include "support/memory_file.h"

namespace KelvonClip {
namespace {

constexpr std::size_t BLOCK = 4096;

// Every read finds other bytes, until `changes` reads have.
class RestlessFile : public test::WrappedFile {
  public:
    explicit RestlessFile(int change_count) : WrappedFile(std::make_shared<test::MemoryFile>()), changes(change_count) {
        inner->writeSync(0, BLOCK, AlignedBuffer(BLOCK).data());
    }
    void read(std::uint64_t position, std::uint32_t length, void* buffer,
              std::shared_ptr<CIO::CIOObject> done) override {
        WrappedFile::read(position, length, buffer, std::move(done));
        if (reads < changes) ++reads;
        std::memset(buffer, reads, length);
    }

  private:
    int changes, reads = 0;
};

TEST(SettledRead, GivesWhatTwoReadingsInARowFound) {
    for (int changes : {0, 1, 2, 50}) {
        RestlessFile file(changes);
        AlignedBuffer bytes(BLOCK);
        ASSERT_EQ(readSettled(file, 0, bytes), KString());
        EXPECT_EQ(bytes.data()[0], static_cast<std::byte>(changes));
        EXPECT_EQ(bytes.data()[BLOCK - 1], static_cast<std::byte>(changes));
    }
}

TEST(SettledRead, GivesUpWhenTheBytesNeverSettle) {
    RestlessFile file(100000);
    AlignedBuffer bytes(BLOCK);
    EXPECT_EQ(readSettled(file, 0, bytes), KString("Read failed"));
}

TEST(SettledRead, GivesTheHostsErrorOfEitherReading) {
    for (std::uint64_t n : {1u, 2u, 3u}) {
        auto const faulty = std::make_shared<test::FaultyFile>(std::make_shared<RestlessFile>(2));
        faulty->failFrom(n);
        AlignedBuffer bytes(BLOCK);
        EXPECT_EQ(readSettled(*faulty, 0, bytes), KString(test::FaultyFile::READ_FAULT)) << n;
    }
}

}  // namespace
}  // namespace KelvonClip
