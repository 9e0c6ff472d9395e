// The state of a recording after a power failure, or after the process was killed, at any moment.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "support/crash_disk.h"
#include "support/disk_image.h"
#include "support/sanitizers.h"
#include "vfile/vfile_builder.h"
#include "vfile/vfilegrow.h"
#include "vfile/vfilesparse2.h"

namespace KelvonClip {
namespace {

using test::CrashDisk;
using test::pattern;

constexpr std::uint32_t UNIT = 512;
constexpr std::uint64_t PARTITION = 1 << 24;
constexpr std::uint64_t TRACKS = 3;
constexpr std::uint64_t BLOCK_RECORDS = 4095;

// Tracks in grow containers on one sparse file, as in a clip. Every unit identifies its position and its recording.
class Tracks {
  public:
    static void create(std::shared_ptr<VFileObject> const& disk) {
        ASSERT_EQ(VFileSparse2::create(disk, TRACKS * PARTITION), KString());
        auto const sparse = VFileSparse2::open(disk, false).file;
        for (std::uint64_t t = 0; t < TRACKS; ++t)
            ASSERT_EQ(VFileGrow::create(buildPartition(sparse, t * PARTITION, PARTITION).file), KString());
        ASSERT_EQ(sparse->writeBack(Durability::power_loss), KString());
    }

    Tracks(std::shared_ptr<VFileObject> const& disk, std::uint64_t recording_number) : recording(recording_number) {
        auto const sparse = VFileSparse2::open(disk, false);
        EXPECT_EQ(sparse.error, KString());
        for (std::uint64_t t = 0; t < TRACKS; ++t) {
            auto const track = VFileGrow::open(buildPartition(sparse.file, t * PARTITION, PARTITION).file, false);
            EXPECT_EQ(track.error, KString());
            files.push_back(track.file);
        }
    }

    void append(std::uint64_t track) {
        std::uint64_t const position = files[track]->length();
        ASSERT_EQ(files[track]->writeSync(position, UNIT, unit(track, position).data()), KString());
    }

    KString checkpoint(Durability durability) {
        std::vector<VFileObject*> stacks;
        for (auto const& file : files)
            stacks.push_back(file.get());
        return writeBackAll(stacks, durability);
    }

    std::vector<std::uint64_t> lengths() const {
        std::vector<std::uint64_t> all;
        for (auto const& file : files)
            all.push_back(file->length());
        return all;
    }

    // Every byte within a length belongs to this recording and position, and nothing before the last checkpoint is
    // missing.
    testing::AssertionResult keeps(std::vector<std::uint64_t> const& promised) const {
        for (std::uint64_t t = 0; t < TRACKS; ++t) {
            std::uint64_t const length = files[t]->length();
            if (length < promised[t])
                return testing::AssertionFailure() << "track " << t << ": " << length << " bytes of " << promised[t];
            std::vector<std::byte> bytes(length);
            KString const error = files[t]->readSync(0, static_cast<std::uint32_t>(length), bytes.data());
            if (!error.empty()) return testing::AssertionFailure() << "track " << t << ": " << error.toUtf8();
            for (std::uint64_t at = 0; at < length; at += UNIT)
                if (std::memcmp(bytes.data() + at, unit(t, at).data(), UNIT) != 0)
                    return testing::AssertionFailure() << "track " << t << ": wrong bytes at " << at;
        }
        return testing::AssertionSuccess();
    }

  private:
    std::vector<std::byte> unit(std::uint64_t track, std::uint64_t position) const {
        return pattern(track * PARTITION + position, UNIT, recording + 1);
    }

    std::uint64_t recording;
    std::vector<std::shared_ptr<VFileGrow>> files;
};

// A crash after `event` writes and flushes. What a checkpoint before it covered must survive.
struct Promise {
    std::size_t event;
    std::vector<std::uint64_t> lengths;
};

struct Scenario {
    std::uint64_t units_before;  // recorded before the first crash
    bool over_an_older_recording;
    CrashDisk::Survivors survivors;
    Durability checkpoints;
};
constexpr std::uint64_t UNITS = 120;

void crashEverywhere(Scenario const& scenario, std::mt19937& dice) {
    auto const disk = std::make_shared<CrashDisk>();
    if (scenario.over_an_older_recording) {
        Tracks::create(disk);
        Tracks older(disk, 1);
        for (std::uint64_t n = 0; n < scenario.units_before + UNITS + 2 * BLOCK_RECORDS; ++n)
            older.append(n % TRACKS);
    }
    Tracks::create(disk);
    std::vector<Promise> promises;
    {
        Tracks recorder(disk, 0);
        for (std::uint64_t n = 0; n < scenario.units_before; ++n)
            recorder.append(n % TRACKS);
        ASSERT_EQ(recorder.checkpoint(Durability::power_loss), KString());
        disk->begin();
        promises.push_back({0, recorder.lengths()});
        for (std::uint64_t n = 0; n < UNITS; ++n) {
            recorder.append((scenario.units_before + n) % TRACKS);
            if (dice() % 12 != 0) continue;
            auto const lengths = recorder.lengths();
            ASSERT_EQ(recorder.checkpoint(scenario.checkpoints), KString());
            promises.push_back({disk->eventCount(), lengths});
        }
    }
    std::size_t const last = disk->eventCount();
    for (int crash = 0; crash < test::tries(scenario.units_before == 0 ? 120 : 30); ++crash) {
        std::size_t const event = dice() % (last + 1);
        std::vector<std::uint64_t> promised;
        for (auto const& promise : promises)
            if (promise.event <= event) promised = promise.lengths;
        std::shared_ptr<VFileObject> const left = disk->afterCrash(event, scenario.survivors, dice);
        std::vector<std::uint64_t> found;
        {
            Tracks again(left, 0);
            ASSERT_TRUE(again.keeps(promised)) << "crash at event " << event << " of " << last;
            // Recording after the crash does not damage what was found.
            for (std::uint64_t n = 0; n < 5; ++n)
                again.append(n % TRACKS);
            found = again.lengths();
        }
        ASSERT_TRUE(Tracks(left, 0).keeps(found)) << "recorded on after a crash at event " << event << " of " << last;
    }
}

// Recordings whose next map block is far away, the first of a run, or inside a run.
void crashScenarios(CrashDisk::Survivors survivors, Durability checkpoints) {
    std::mt19937 dice(20);
    for (std::uint64_t before : {std::uint64_t{0}, BLOCK_RECORDS - 60, 2 * BLOCK_RECORDS - 60})
        for (bool over : {false, true}) {
            SCOPED_TRACE(testing::Message() << before << " units before, over an older recording: " << over);
            crashEverywhere({before, over, survivors, checkpoints}, dice);
        }
}

TEST(PowerLoss, ADurableCheckpointKeepsItsPromiseWhateverPartOfTheLaterWritesLands) {
    crashScenarios(CrashDisk::any_sectors, Durability::power_loss);
}

TEST(PowerLoss, AKilledProcessKeepsWhatACheckpointWroteAtAnyMoment) {
    crashScenarios(CrashDisk::in_order, Durability::process_end);
}

// A container may stand on another one, which must be able to find the data and the map of the upper one.
template <class Below>
void checkpointCoversTheContainerBelow(std::shared_ptr<CrashDisk> const& disk) {
    auto const below = Below::open(disk, false).file;
    ASSERT_EQ(VFileSparse2::create(below, PARTITION), KString());
    auto const file = VFileSparse2::open(below, false).file;
    disk->begin();
    std::vector<std::byte> const written(UNIT, std::byte{0x5A});
    ASSERT_EQ(file->writeSync(UNIT, UNIT, written.data()), KString());
    ASSERT_EQ(file->writeBack(Durability::power_loss), KString());

    std::mt19937 dice(21);
    std::shared_ptr<VFileObject> const left = disk->afterCrash(disk->eventCount(), CrashDisk::any_sectors, dice);
    auto const again = VFileSparse2::open(Below::open(left, true).file, true);
    ASSERT_EQ(again.error, KString());
    std::vector<std::byte> found(UNIT);
    ASSERT_EQ(again.file->readSync(UNIT, UNIT, found.data()), KString());
    EXPECT_EQ(found, written);
}

TEST(PowerLoss, ACheckpointCoversTheContainersThatAContainerStandsOn) {
    auto disk = std::make_shared<CrashDisk>();
    ASSERT_EQ(VFileGrow::create(disk), KString());
    checkpointCoversTheContainerBelow<VFileGrow>(disk);
    disk = std::make_shared<CrashDisk>();
    ASSERT_EQ(VFileSparse2::create(disk, 2 * PARTITION), KString());
    checkpointCoversTheContainerBelow<VFileSparse2>(disk);
}

}  // namespace
}  // namespace KelvonClip
