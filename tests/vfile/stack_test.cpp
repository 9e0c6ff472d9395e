// Whole stacks, as clips use them: a grow file over a partition over a sparse file over a file.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "support/disk_image.h"
#include "support/memory_file.h"
#include "support/sanitizers.h"
#include "support/scratch.h"
#include "vfile/aligned_buffer.h"
#include "vfile/vfile_builder.h"
#include "vfile/vfilefile.h"
#include "vfile/vfilegrow.h"
#include "vfile/vfilesparse2.h"

namespace KelvonClip {
namespace {

using test::FaultyFile;
using test::MemoryFile;
using test::pattern;

constexpr std::uint64_t PARTITION = 1 << 26;

// The bottom of the stack: a persistent memory file, or a host file that is closed and reopened.
struct Bottom {
    char const* name;
    std::uint64_t read_grid;  // reads begin and end on it; a host file need not take others
    std::function<std::shared_ptr<VFileObject>(ScratchFolder const&, std::shared_ptr<VFileObject>&, bool create)> open;
};
std::vector<Bottom> bottoms() {
    return {{"memory", 1,
             [](ScratchFolder const&, std::shared_ptr<VFileObject>& kept, bool) {
                 if (!kept) kept = std::make_shared<MemoryFile>();
                 return kept;
             }},
            {"host_file", 512, [](ScratchFolder const& folder, std::shared_ptr<VFileObject>&, bool create) {
                 KString const name = folder.file("stack");
                 auto opened = create ? VFileFile::create(name) : VFileFile::open(name, false);
                 EXPECT_EQ(opened.error, KString());
                 return std::shared_ptr<VFileObject>(opened.file);
             }}};
}

struct StackTest : testing::TestWithParam<Bottom> {
    ScratchFolder folder;
    std::shared_ptr<VFileObject> kept;

    std::shared_ptr<VFileObject> bottom(bool create = false) { return GetParam().open(folder, kept, create); }
    static std::shared_ptr<VFileObject> partition(std::shared_ptr<VFileObject> const& sparse, std::uint64_t number) {
        return buildPartition(sparse, number * PARTITION, PARTITION).file;
    }
    void create(std::uint64_t partitions) {
        auto const host = bottom(true);
        ASSERT_EQ(VFileSparse2::create(host, partitions * PARTITION), KString());
        auto const sparse = VFileSparse2::open(host, false);
        ASSERT_EQ(sparse.error, KString());
        for (std::uint64_t i = 0; i < partitions; ++i)
            ASSERT_EQ(VFileGrow::create(partition(sparse.file, i)), KString());
    }
    std::shared_ptr<VFileObject> open(std::uint64_t number = 0) {
        auto const sparse = VFileSparse2::open(bottom(), false);
        EXPECT_EQ(sparse.error, KString());
        auto const grow = VFileGrow::open(partition(sparse.file, number), false);
        EXPECT_EQ(grow.error, KString());
        return grow.file;
    }
};
INSTANTIATE_TEST_SUITE_P(Bottoms, StackTest, testing::ValuesIn(bottoms()),
                         [](auto const& row) { return std::string(row.param.name); });

// Ten thousand operations on three tracks, compared with plain byte arrays, with closing and reopening in between.
TEST_P(StackTest, BehavesLikePlainFilesAcrossReopenings) {
    constexpr std::uint64_t TRACKS = 3, MOST = 3 << 20;
    create(TRACKS);
    std::vector<std::vector<std::byte>> plain(TRACKS);
    std::vector<std::shared_ptr<VFileObject>> files(TRACKS);
    std::mt19937_64 random(20240607);
    AlignedBuffer buffer(65536);
    auto const openAll = [&] {
        for (std::uint64_t i = 0; i < TRACKS; ++i)
            files[i] = open(i);
    };
    openAll();
    std::uint64_t reads = 0, writes = 0, reopenings = 0;
    for (int step = 0; step < test::tries(10000); ++step) {
        std::uint64_t const track = random() % TRACKS;
        auto& bytes = plain[track];
        auto& file = files[track];
        auto const length = static_cast<std::uint32_t>(512 * (1 + random() % (random() % 8 == 0 ? 128 : 8)));
        switch (random() % 100) {
        default: {  // write, mostly at the end, sometimes behind it, sometimes inside
            std::uint64_t position = bytes.size();
            if (random() % 4 == 0) position = 512 * (random() % (bytes.size() / 512 + 1));
            if (random() % 16 == 0) position = bytes.size() + 512 * (random() % 64);
            if (position + length > MOST) position = 512 * (random() % 1024);
            auto const data = pattern(position, length, random());
            std::copy(data.begin(), data.end(), buffer.data());
            if (random() % 4 == 0) file->allocate(position, length);
            ASSERT_EQ(file->writeSync(position, length, buffer.data()), KString());
            if (bytes.size() < position + length) bytes.resize(position + length);
            std::copy(data.begin(), data.end(), bytes.begin() + static_cast<std::ptrdiff_t>(position));
            ++writes;
            break;
        }
        case 1:
            files.assign(TRACKS, nullptr);
            openAll();
            ++reopenings;
            break;
        case 2:
            file.reset();
            file = open(track);
            break;
        case 3:
            EXPECT_EQ(file->readSync(bytes.size(), 1, buffer.data()), KString("Read beyond end of grow file"));
            break;
        }
        ASSERT_EQ(file->length(), bytes.size());
        if (bytes.empty() || random() % 2 == 0) continue;
        auto const grid = GetParam().read_grid;
        std::uint64_t const position = random() % bytes.size() / grid * grid;
        auto const count = static_cast<std::uint32_t>(
            std::min<std::uint64_t>(bytes.size() - position, (random() % 65536 / grid + 1) * grid));
        ASSERT_EQ(file->readSync(position, count, buffer.data()), KString()) << step;
        ASSERT_TRUE(
            std::equal(buffer.data(), buffer.data() + count, bytes.begin() + static_cast<std::ptrdiff_t>(position)))
            << "step " << step << ", track " << track << ", bytes from " << position << " on";
        ++reads;
    }
    EXPECT_GT(reads, static_cast<unsigned>(test::tries(4000)));
    EXPECT_GT(writes, static_cast<unsigned>(test::tries(9000)));
    EXPECT_GT(reopenings, static_cast<unsigned>(test::tries(50)));
    files.assign(TRACKS, nullptr);
    openAll();
    for (std::uint64_t i = 0; i < TRACKS; ++i)
        for (std::uint64_t position = 0; position < plain[i].size(); position += 512) {
            ASSERT_EQ(files[i]->readSync(position, 512, buffer.data()), KString());
            ASSERT_TRUE(std::equal(buffer.data(), buffer.data() + 512,
                                   plain[i].begin() + static_cast<std::ptrdiff_t>(position)));
        }
}

// Eight threads with a track each in one sparse file; enough units to replace full map blocks meanwhile.
TEST_P(StackTest, ThreadsRecordAndPlayTracksOfOneSparseFileAtOnce) {
    constexpr std::uint64_t THREADS = 8, UNITS = 700;
    constexpr std::uint32_t UNIT = 512;
    create(THREADS);
    std::atomic<int> failures{0};
    auto const inParallel = [&](auto work) {
        std::vector<std::thread> threads;
        for (std::uint64_t t = 0; t < THREADS; ++t)
            threads.emplace_back([&, t] { work(t, open(t)); });
        for (auto& thread : threads)
            thread.join();
    };
    inParallel([&](std::uint64_t track, std::shared_ptr<VFileObject> const& file) {
        AlignedBuffer buffer(UNIT);
        for (std::uint64_t unit = 0; unit < UNITS; ++unit) {
            auto const data = pattern(unit * UNIT, UNIT, track);
            std::copy(data.begin(), data.end(), buffer.data());
            if (!file->writeSync(unit * UNIT, UNIT, buffer.data()).empty()) ++failures;
            // And back, some unit that is there already.
            std::uint64_t const back = unit * 7 % (unit + 1);
            auto const expected = pattern(back * UNIT, UNIT, track);
            if (!file->readSync(back * UNIT, UNIT, buffer.data()).empty() ||
                !std::equal(expected.begin(), expected.end(), buffer.data()))
                ++failures;
        }
    });
    EXPECT_EQ(failures, 0);
    inParallel([&](std::uint64_t track, std::shared_ptr<VFileObject> const& file) {
        AlignedBuffer buffer(UNIT);
        if (file->length() != UNITS * UNIT) ++failures;
        for (std::uint64_t unit = 0; unit < UNITS; ++unit) {
            auto const expected = pattern(unit * UNIT, UNIT, track);
            if (!file->readSync(unit * UNIT, UNIT, buffer.data()).empty() ||
                !std::equal(expected.begin(), expected.end(), buffer.data()))
                ++failures;
        }
    });
    EXPECT_EQ(failures, 0);
}

// Several requests of one thread in flight on one completion object.
TEST_P(StackTest, ManyRequestsMayShareOneCompletionObject) {
    create(1);
    auto const file = open();
    constexpr std::uint32_t PIECE = 4096, PIECES = 64;
    AlignedBuffer data(PIECE * PIECES), back(PIECE * PIECES);
    auto const bytes = pattern(0, PIECE * PIECES);
    std::copy(bytes.begin(), bytes.end(), data.data());
    ASSERT_EQ(file->writeSync(0, PIECE * PIECES, data.data()), KString());
    EXPECT_EQ(CIO::runSync([&](std::shared_ptr<CIO::CIOObject> done) {
                  for (std::uint32_t i = 0; i < PIECES; ++i)
                      file->read(i * PIECE, PIECE, back.data() + i * PIECE, done);
              }),
              KString());
    EXPECT_TRUE(std::equal(data.data(), data.data() + PIECE * PIECES, back.data()));
    EXPECT_EQ(CIO::runSync([&](std::shared_ptr<CIO::CIOObject> done) {
                  file->read(0, PIECE, back.data(), done);
                  file->read(PIECE * PIECES, 1, back.data(), done);
                  file->read(PIECE, PIECE, back.data() + PIECE, done);
              }),
              KString("Read beyond end of grow file"));
}

// Every request of a recording session fails in turn, once or permanently: the first message is returned, earlier data
// is there, and the stack can be opened and written again.
TEST(StackFaults, NoFaultHurtsWhatWasRecordedBefore) {
    constexpr std::uint32_t UNIT = 4096;
    for (auto span : {FaultyFile::once, FaultyFile::from_there_on})
        for (std::uint64_t n = 1;; ++n) {
            auto const memory = std::make_shared<MemoryFile>();
            auto const faulty = std::make_shared<FaultyFile>(memory);
            auto const open = [&]() -> Opened<VFileGrow> {
                auto sparse = VFileSparse2::open(faulty, false);
                if (!sparse.file) return {sparse.error, nullptr};
                return VFileGrow::open(buildPartition(sparse.file, 0, PARTITION).file, false);
            };
            ASSERT_EQ(VFileSparse2::create(faulty, PARTITION), KString());
            {
                auto const sparse = VFileSparse2::open(faulty, false).file;
                ASSERT_EQ(VFileGrow::create(buildPartition(sparse, 0, PARTITION).file), KString());
            }
            ASSERT_EQ(open().file->writeSync(0, UNIT, pattern(0, UNIT).data()), KString());

            faulty->failFrom(n, span);
            std::vector<KString> messages;
            if (auto opened = open(); opened.file) {
                messages.push_back(opened.file->writeSync(UNIT, UNIT, pattern(UNIT, UNIT).data()));
                messages.push_back(opened.file->writeSync(2 * UNIT, UNIT, pattern(2 * UNIT, UNIT).data()));
            } else {
                messages.push_back(opened.error);
            }
            bool const struck = faulty->struck();
            for (KString const& message : messages)
                EXPECT_TRUE(message.empty() || (struck && (message == KString(FaultyFile::WRITE_FAULT) ||
                                                           message == KString(FaultyFile::READ_FAULT) ||
                                                           message == KString("Sparse map is unreadable"))))
                    << message.toUtf8();
            if (span == FaultyFile::once) faulty->heal();

            faulty->heal();
            auto const again = open();
            ASSERT_EQ(again.error, KString()) << n;
            std::vector<std::byte> buffer(UNIT);
            EXPECT_EQ(again.file->readSync(0, UNIT, buffer.data()), KString());
            EXPECT_EQ(buffer, pattern(0, UNIT)) << n;
            EXPECT_EQ(again.file->writeSync(0, UNIT, pattern(0, UNIT, 3).data()), KString());
            if (!struck) {
                EXPECT_EQ(again.file->length(), 3u * UNIT);
                EXPECT_GT(n, 5u);
                break;
            }
        }
}

}  // namespace
}  // namespace KelvonClip
