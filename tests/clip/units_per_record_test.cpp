#include "clip/units_per_record.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "clip/clip_directory.h"
#include "clip/create_clip.h"
#include "clip/track.h"
#include "support/disk_image.h"
#include "support/memory_file.h"
#include "support/sanitizers.h"
#include "vfile/sparse2_data.h"
#include "vfile/vfilesparse2.h"

namespace KelvonClip {
namespace {

using test::MemoryFile;
using test::pattern;
using test::Sparse2Image;

constexpr std::uint64_t MOST_RECORDS = std::uint64_t{8188} * 4095;
constexpr std::uint32_t A_DAY_AT_60 = 60 * 60 * 60 * 24;
constexpr VideoStandard FASTEST = VideoStandard::s1080p_60;

// The largest clip that can be created, by the units of a day: as many tracks as the header has room for, at the
// highest rate, with a unit for each field.
ClipDescription largestClip() {
    ClipDescription clip;
    clip.file_name = "clip";
    clip.standard = FASTEST;
    clip.audio_kind = TrackAudioType::hemlock;
    clip.audio_subchannel_count = 2;
    clip.timecode_track = true;
    for (clip.audio_track_count = 1;; ++clip.audio_track_count) {
        auto const layout = layOutClip(clip);
        if (!layout.error.empty() || !newClipHeader(clip, layout).error.empty()) break;
    }
    --clip.audio_track_count;
    return clip;
}

TEST(UnitsPerRecord, AUnitHasARecordOfItsOwnWhereADayFits) {
    EXPECT_EQ(unitsPerRecord({}), 1u);
    for (std::uint32_t tracks : {1u, 4u, 6u}) {
        std::vector<std::uint32_t> const days(tracks, A_DAY_AT_60);
        EXPECT_EQ(unitsPerRecord(days), 1u) << tracks;
    }
    std::vector<std::uint32_t> const seven(7, A_DAY_AT_60);
    EXPECT_EQ(unitsPerRecord(seven), 2u);
    // Two records of each track are kept aside.
    auto const limit = static_cast<std::uint32_t>(MOST_RECORDS - 2);
    EXPECT_EQ(unitsPerRecord(std::vector{limit}), 1u);
    EXPECT_EQ(unitsPerRecord(std::vector{limit + 1}), 2u);
}

TEST(UnitsPerRecord, UnitsOfADayByStandard) {
    EXPECT_EQ(unitsPerDay(VideoStandard::s1080p_60, 1), A_DAY_AT_60);
    EXPECT_EQ(unitsPerDay(VideoStandard::s1080i_50, 2), 25u * 60 * 60 * 24);
    EXPECT_EQ(unitsPerDay(VideoStandard::s1080p_59_94, 1), 35964u * 144);
}

TEST(UnitsPerRecord, ADayOfTheLargestClipHasEnoughRecords) {
    for (auto const standard : {VideoStandard::s1080p_60, VideoStandard::s1080p_59_94, VideoStandard::s1080i_50,
                                VideoStandard::s1080p_25, VideoStandard::s4K_60}) {
        std::uint32_t const day = unitsPerDay(standard, 1);
        for (std::uint32_t tracks = 1; tracks <= 100; ++tracks) {
            std::vector<std::uint32_t> const days(tracks, day);
            std::uint64_t const together = unitsPerRecord(days);
            auto const recordsFor = [&](std::uint64_t units) { return tracks * ((day + units - 1) / units + 1); };
            ASSERT_LE(recordsFor(together), MOST_RECORDS) << tracks;
            if (together > 1) {
                ASSERT_GT(recordsFor(together - 1) + tracks, MOST_RECORDS) << tracks << ": more than needed";
            }
        }
    }
}

// Keeps what is written before `kept_end`; drops the rest, which reads as zeros.
class ForgetfulFile : public test::WrappedFile {
  public:
    ForgetfulFile(std::shared_ptr<VFileObject> wrapped, std::uint64_t kept)
        : WrappedFile(std::move(wrapped)), kept_end(kept) {}

    void read(std::uint64_t position, std::uint32_t length, void* buffer,
              std::shared_ptr<CIO::CIOObject> done) override {
        if (position < kept_end) return inner->read(position, length, buffer, std::move(done));
        std::memset(buffer, 0, length);
    }
    void write(std::uint64_t position, std::uint32_t length, void const* buffer,
               std::shared_ptr<CIO::CIOObject> done) override {
        if (position < kept_end) inner->write(position, length, buffer, std::move(done));
    }

  private:
    std::uint64_t kept_end;
};

TEST(UnitsPerRecord, ASimulatedDayOfTheLargestClipIsRecordedToItsEnd) {
    if (test::SANITIZED) GTEST_SKIP() << "33 million allocations take minutes";
    auto const layout = layOutClip(largestClip());
    std::size_t const tracks = layout.tracks.size();
    ASSERT_GT(tracks, 50u);
    std::uint32_t const together = unitsPerRecord(std::vector<std::uint32_t>(tracks, A_DAY_AT_60));
    ASSERT_GT(together, 5u);

    auto const disk = std::make_shared<MemoryFile>();
    // Longer than the real one, so that only the number of records limits the recording.
    ASSERT_EQ(VFileSparse2::create(disk, layout.sparse_length * 2), KString());
    auto const host = std::make_shared<ForgetfulFile>(disk, 131072);
    DataStruct log;
    ASSERT_EQ(log.replay(*host, false), KString());
    for (auto const& track : layout.tracks)
        ASSERT_EQ(log.mapRange(*host, track.start, 4096).length, 4096u);  // the grow header
    for (std::uint32_t unit = 0; unit < A_DAY_AT_60; unit += together)
        for (auto const& track : layout.tracks) {
            std::uint64_t const unit_size = (track.length - 4096) / A_DAY_AT_60;
            std::uint64_t const position = track.start + 4096 + unit * unit_size, bytes = together * unit_size;
            ASSERT_EQ(log.mapRange(*host, position, bytes).error, KString()) << unit;
            log.unlanded.landed(position, bytes);
        }
    EXPECT_LE(log.block_count, 8188u);
    EXPECT_GT(log.block_count, 8188u * 9 / 10) << "the units are allocated in larger groups than needed";
}

// --- Through a clip -------------------------------------------------------------------------------------------------

// The extents of the clip's data area.
std::vector<Sparse2Image::Extent> extentsOf(MemoryFile& clip_file) {
    MemoryFile area;
    auto const bytes = clip_file.bytes(32768, clip_file.realSize() - 32768);
    area.put(0, bytes.data(), bytes.size());
    return Sparse2Image::read(area).extents;
}

struct RecordedClip {
    std::shared_ptr<MemoryFile> disk = std::make_shared<MemoryFile>("clip");
    ClipLayout layout;
    unsigned handle = 0;

    explicit RecordedClip(ClipDescription const& description) : layout(layOutClip(description)) {
        auto const header = newClipHeader(description, layout);
        EXPECT_EQ(writeNewClip(disk, *header.area, layout), KString());
        open();
    }
    ~RecordedClip() { closeClip(handle); }
    void open() { EXPECT_EQ(openClip("clip", false, &handle, disk), KString()); }
    void reopen() {
        EXPECT_EQ(closeClip(handle), KString());
        open();
    }
    Track& track(std::size_t index) { return *findClip(handle, OpenTracks::yes)->clip->tracks()[index]; }
    KString write(std::size_t index, std::uint32_t unit) {
        auto const bytes = pattern(unit, track(index).unitSize(), index);
        return track(index).writeUnit(unit, bytes.data(), track(index).unitSize());
    }
    void expectUnit(std::size_t index, std::uint32_t unit) {
        std::vector<std::byte> bytes(track(index).unitSize());
        EXPECT_EQ(track(index).readUnit(unit, bytes.data()), KString());
        EXPECT_EQ(bytes, pattern(unit, track(index).unitSize(), index)) << index << ", " << unit;
    }
};

TEST(UnitsPerRecord, ALargestClipAllocatesUnitsTogetherAndGivesTheLastOnesBack) {
    RecordedClip clip(largestClip());
    std::size_t const tracks = clip.layout.tracks.size();
    std::uint64_t const together = unitsPerRecord(std::vector<std::uint32_t>(tracks, A_DAY_AT_60));
    for (std::uint32_t unit = 0; unit < 2; ++unit)
        for (std::size_t index : {0u, 1u, 2u})
            ASSERT_EQ(clip.write(index, unit), KString());
    for (std::size_t index : {0u, 1u, 2u})
        EXPECT_EQ(clip.track(index).lengthInUnits(), 2u) << "what is reserved is not shown";
    clip.reopen();

    auto const extents = extentsOf(*clip.disk);
    ASSERT_EQ(extents.size(), tracks + 3) << "grow headers, and a record for each track";
    for (std::size_t index : {0u, 1u, 2u}) {
        std::uint64_t const stored = clip.track(index).format().stored_unit_size;
        EXPECT_EQ(extents[tracks + index].start, clip.layout.tracks[index].start + 4096);
        EXPECT_EQ(extents[tracks + index].length, stored * (index == 2 ? 2 : together)) << index;
    }
    for (std::size_t index : {0u, 1u, 2u})
        for (std::uint32_t unit = 0; unit < 2; ++unit)
            clip.expectUnit(index, unit);

    // The recording goes on where it ended.
    ASSERT_EQ(clip.write(0, 2), KString());
    EXPECT_EQ(clip.track(0).lengthInUnits(), 3u);
    clip.expectUnit(0, 2);
    clip.reopen();
    EXPECT_EQ(extentsOf(*clip.disk).size(), tracks + 3) << "in its reserved place";
}

TEST(UnitsPerRecord, OtherClipsAllocateUnitByUnit) {
    ClipDescription description;
    description.file_name = "clip";
    description.standard = VideoStandard::s1080i_50;
    description.audio_kind = TrackAudioType::hemlock;
    description.audio_track_count = 2;
    RecordedClip clip(description);
    for (std::uint32_t unit = 0; unit < 2; ++unit)
        for (std::size_t index : {0u, 1u})
            ASSERT_EQ(clip.write(index, unit), KString());
    clip.reopen();
    EXPECT_EQ(extentsOf(*clip.disk).size(), 2u + 4u);
}

}  // namespace
}  // namespace KelvonClip
