// No number in a file decides how much memory is allocated: files that state extreme lengths, counts and positions are
// opened, and everything that is allocated on the way is counted (docs/limits.md, "Bounds for any file").
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include <gtest/gtest.h>
#include <kelvonclip/kelvon_clip.h>
#include <kelvonclip/track.h>

#include "support/clip_image.h"
#include "support/disk_image.h"
#include "support/failing_memory.h"
#include "support/memory_file.h"
#include "support/scratch_path.h"

namespace KelvonClip {
namespace {

using namespace test;

constexpr std::uint64_t BLOCK = 65536, SECTOR = 512, MIB = 1 << 20;
constexpr std::uint64_t FIXED = 4 * MIB, PER_BYTE = 8;  // the bounds
constexpr std::uint64_t MOST = ~std::uint64_t{0};
constexpr std::uint64_t RUNS = 8188, RECORDS = 4095;

class HostileFile : public testing::Test {
  protected:
    // A clip with one track in the container, or as the header says.
    static std::string headerOf(std::string const& container) {
        return clipHeaderText("1080i 50Hz", trackMeta("auk2", element("VFile", element(container, THIS))));
    }
    // Writes the clip, opens it, asks for its tracks and reads one unit of each. `length`: of the file, if it goes on
    // with a hole.
    void expectBounded(std::string const& header, std::uint64_t length = 0) {
        auto const bytes = data->bytes(0, data->realSize());
        writeFile(folder.name("clip"),
                  headerArea(header) + std::string(reinterpret_cast<char const*>(bytes.data()), bytes.size()));
        std::uint64_t const present = HEADER_AREA + bytes.size();
        if (length != 0) std::filesystem::resize_file(folder.path / "clip", length);
        std::uint64_t const before = Memory::bytesAllocated();
        unsigned clip = 0;
        auto const name = folder.name("clip");
        if (clip_open(name.c_str(), &clip) == nullptr) {
            for (unsigned index = 0; index < clip_track_count(clip); ++index) {
                unsigned const track = clip_get_track(clip, index);
                ASSERT_LE(track_unit_size(track), sizeof unit);
                track_read(track, track_length_in_units(track) / 2, unit);
            }
            clip_close(clip);
        }
        std::uint64_t const allocated = Memory::bytesAllocated() - before;
        EXPECT_LE(allocated, FIXED + PER_BYTE * present);
        RecordProperty("allocated", std::to_string(allocated));
    }
    // A superblock whose run table names `position` everywhere, and a map block with records from `start` on.
    void putSparse2(std::uint64_t length, std::uint64_t position, std::uint64_t start, std::uint64_t record_length) {
        putText(*data, 0, "KLVNPRS2");
        putBigEndian(*data, 8, length);
        for (std::uint64_t run = 0; run < RUNS; ++run)
            putBigEndian(*data, 32 + 8 * run, position / SECTOR);
        putText(*data, BLOCK, "KLVNPRS3");
        for (std::uint64_t record = 0; record < RECORDS; ++record) {
            putBigEndian(*data, BLOCK + 16 + 16 * record, start + 2 * record);
            putBigEndian(*data, BLOCK + 24 + 16 * record, record_length);
        }
        data->resize(2 * BLOCK);
    }

    inline static std::string const THIS = element("VFile", element("ThisFile", ""));
    alignas(4096) inline static char unit[65536];  // of any track here
    std::shared_ptr<MemoryFile> const data = std::make_shared<MemoryFile>();
    ScratchPath folder;
};

TEST_F(HostileFile, AnExtremeLengthInASuperblock) {
    putSparse2(MOST, BLOCK, 0, 1);
    expectBounded(headerOf("Sparse2"));
}

TEST_F(HostileFile, ARunTableThatNamesOneBlockAgainAndAgain) {
    putSparse2(MOST / 2, BLOCK, 0, 0);
    expectBounded(headerOf("Sparse2"));
    expectBounded(headerOf("Sparse2"), 1024 * MIB);
}

TEST_F(HostileFile, RecordsOfExtremeLengthsAndPositions) {
    for (std::uint64_t record_length : {MOST, MOST / SECTOR, std::uint64_t{1} << 40, std::uint64_t{1}})
        for (std::uint64_t start : {std::uint64_t{0}, MOST - 5000, MOST / SECTOR - 10}) {
            putSparse2(MOST, BLOCK, start, record_length);
            expectBounded(headerOf("Sparse2"));
        }
}

TEST_F(HostileFile, AGrowFileOfExtremeLength) {
    for (std::uint64_t length : {MOST, MOST - 4096, MOST / 2}) {
        data->resize(4096 + 3 * 8192);
        putText(*data, 0, "KLVNGROW");
        putBigEndian(*data, 8, length);
        expectBounded(headerOf("Grow"));
    }
}

TEST_F(HostileFile, ABlockOfTheOldSparseFormatThatNamesItselfAsTheNext) {
    constexpr std::uint64_t OLD_RECORDS = 1022;
    data->resize(BLOCK);
    putText(*data, 0, "KLVNPRSE");
    putBigEndian(*data, 16, MOST);
    for (std::uint64_t record = 0; record < OLD_RECORDS; ++record) {
        putBigEndian(*data, 24 + 16 * record, 2 * record);
        putBigEndian(*data, 32 + 16 * record, 1);
    }
    for (std::uint64_t next : {std::uint64_t{0}, 32 + OLD_RECORDS, MOST}) {
        putBigEndian(*data, 8, next);
        expectBounded(headerOf("Sparse"));
        expectBounded(headerOf("Sparse"), 1024 * MIB);
    }
}

TEST_F(HostileFile, AHeaderFullOfNestedContainersOrOfTracks) {
    data->resize(4 * BLOCK);
    for (std::string const container : {"Grow", "Sparse", "Sparse2"}) {
        std::string nested = THIS;
        while (nested.size() < HEADER_AREA - 300)
            nested = element("VFile", element(container, nested));
        expectBounded(clipHeaderText("1080i 50Hz", trackMeta("auk2", nested)));
    }
    std::string tracks;
    while (tracks.size() < HEADER_AREA - 500)
        tracks += trackMeta("auk16", rangeOfThisFile(tracks.size(), MOST));
    expectBounded(clipHeaderText("1080i 50Hz", tracks));
    expectBounded(std::string(HEADER_AREA - 1, '<'));
}

}  // namespace
}  // namespace KelvonClip
