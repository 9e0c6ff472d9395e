#include "clip/clip_directory.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/clip_image.h"
#include "support/latch.h"
#include "support/memory_file.h"
#include "support/when_waiting.h"
#include "vfile/vfilegrow.h"

namespace KelvonClip {
namespace {

using test::FaultyFile;
using test::MemoryFile;

constexpr char const* STANDARD = "1080i 50Hz";
constexpr std::uint32_t UNIT = 8 * 4096;  // a unit of an "auk" track at 50Hz

// Closes what a case leaves open.
class ClipDirectoryTest : public testing::Test {
  protected:
    void TearDown() override { closeAllClips(); }
    // The number that the next handle gets.
    static std::uint32_t nextHandle() { return HandleObject().number() + 1; }
};

std::shared_ptr<MemoryFile> image(std::string const& header, std::uint64_t data_bytes = 0) {
    auto file = std::make_shared<MemoryFile>();
    std::string const area = test::headerArea(header);
    file->put(0, area.data(), area.size());
    file->resize(area.size() + data_bytes);
    return file;
}

std::string audioTracks(int count) {
    std::string tracks;
    for (int n = 0; n < count; ++n)
        tracks += test::trackMeta("auk", test::rangeOfThisFile(static_cast<std::uint64_t>(n) * 10 * UNIT,
                                                               static_cast<std::uint64_t>(n + 1) * UNIT));
    return tracks;
}

std::shared_ptr<MemoryFile> clipWithTracks(int count) {
    return image(test::clipHeaderText(STANDARD, audioTracks(count)), 100u * UNIT);
}

KString open(char const* name, unsigned* handle, std::shared_ptr<VFileObject> file) {
    return openClip(name, true, handle, std::move(file));
}

TEST_F(ClipDirectoryTest, OpenMessagesComeInTheirOrder) {
    unsigned handle = 77;
    EXPECT_EQ(openClip("", true, nullptr), KString("Invalid filename"));
    EXPECT_EQ(openClip("", true, &handle), KString("Invalid filename"));
    EXPECT_EQ(openClip("clip", true, nullptr, clipWithTracks(0)), KString("Invalid clip handle"));
    EXPECT_EQ(handle, 77u);
    EXPECT_FALSE(isClipOpen("clip"));
}

TEST_F(ClipDirectoryTest, SecondOpenerOfANameSharesHandleAndMode) {
    unsigned first = 0, second = 0;
    ASSERT_EQ(openClip("clip", false, &first, clipWithTracks(1)), KString());
    ASSERT_EQ(openClip("clip", true, &second), KString()) << "no second file is opened";
    EXPECT_EQ(first, second);
    EXPECT_FALSE(findClip(first)->read_only);

    closeClip(first);
    EXPECT_NE(findClip(first), nullptr);
    closeClip(first);
    EXPECT_EQ(findClip(first), nullptr);
    EXPECT_FALSE(isClipOpen("clip"));
    closeClip(first);  // one too many: ignored
}

TEST_F(ClipDirectoryTest, NamesAreComparedExactly) {
    unsigned first = 0, second = 0;
    ASSERT_EQ(open("clip", &first, clipWithTracks(0)), KString());
    ASSERT_EQ(open("Clip", &second, clipWithTracks(0)), KString());
    EXPECT_EQ(second, first + 1);
}

TEST_F(ClipDirectoryTest, ClosingAndReopeningGivesANewHandle) {
    unsigned first = 0, second = 0;
    ASSERT_EQ(open("clip", &first, clipWithTracks(0)), KString());
    closeClip(first);
    ASSERT_EQ(open("clip", &second, clipWithTracks(0)), KString());
    EXPECT_EQ(second, first + 1);
    EXPECT_EQ(findClip(first), nullptr);
}

TEST_F(ClipDirectoryTest, FailedOpenLeavesNothingAndTakesNoHandle) {
    unsigned handle = 77;
    std::uint32_t const next_handle = nextHandle();
    std::string const damaged = "<KelvonClipMeta1><TrackMetaVector></KelvonClipMeta1>";
    auto const truncated = std::make_shared<MemoryFile>();
    truncated->resize(32767);
    EXPECT_EQ(open("clip", &handle, image(damaged)), KString("XML parsing error in clip header"));
    EXPECT_EQ(open("clip", &handle, image("")), KString("XML parsing error in clip header"));
    EXPECT_EQ(open("clip", &handle, image(test::clipHeaderText("1080i 51Hz", ""))),
              KString("XML parsing error in clip header"));
    EXPECT_EQ(open("clip", &handle, truncated), KString("Read failed"));
    auto faulty = std::make_shared<FaultyFile>(clipWithTracks(1));
    faulty->failFrom(1);
    EXPECT_EQ(open("clip", &handle, faulty), KString(FaultyFile::READ_FAULT));
    EXPECT_EQ(handle, 77u);
    EXPECT_FALSE(isClipOpen("clip"));
    EXPECT_EQ(truncated.use_count(), 1) << "the file is let go";

    ASSERT_EQ(open("clip", &handle, clipWithTracks(0)), KString());
    EXPECT_EQ(handle, next_handle);
}

TEST_F(ClipDirectoryTest, MissingHostFileGivesTheHostsText) {
    unsigned handle = 77;
    EXPECT_NE(openClip("/nowhere/at all/clip", true, &handle), KString());
    EXPECT_EQ(handle, 77u);
}

TEST_F(ClipDirectoryTest, ChildClipKeepsTimecodeSettingsOnly) {
    unsigned handle = 0;
    auto const file = image(test::childHeaderText("<TimecodeSource>striped</TimecodeSource>"
                                                  "<Striped_TC_Offset>1234</Striped_TC_Offset>"
                                                  "<Striped_TC_DF>df</Striped_TC_DF><TrimStart>5</TrimStart>"
                                                  "<VideoStandard>1080i 50Hz</VideoStandard>"));
    ASSERT_EQ(open("clip", &handle, file), KString());
    auto const entry = findClip(handle, OpenTracks::yes);
    ASSERT_NE(entry, nullptr);
    EXPECT_TRUE(entry->meta()->child_clip);
    EXPECT_TRUE(entry->clip->settings().striped);
    EXPECT_TRUE(entry->clip->settings().drop_frame);
    EXPECT_EQ(entry->clip->settings().timecode, 1234u);
    EXPECT_EQ(entry->clip->settings().trim_start, 0u);
    EXPECT_EQ(entry->clip->videoStandard(), VideoStandard::none);
    EXPECT_TRUE(entry->extra->tracks.empty());
}

TEST_F(ClipDirectoryTest, SettingsOfAClipAreThoseOfItsHeader) {
    unsigned handle = 0;
    auto const file = image(test::clipHeaderText(
        STANDARD, "", "<TrimStart>5</TrimStart><TrimEnd>6</TrimEnd><TimecodeSource>tc0striped</TimecodeSource>"));
    ASSERT_EQ(open("clip", &handle, file), KString());
    auto const& settings = findClip(handle)->clip->settings();
    EXPECT_EQ(settings.frequency, VideoFrequency::f50);
    EXPECT_EQ(settings.resolution, VideoResolution::r1080i);
    EXPECT_EQ(settings.trim_start, 5u);
    EXPECT_EQ(settings.trim_end, 6u);
    EXPECT_TRUE(settings.tc0_striped);
    EXPECT_FALSE(settings.striped);
    EXPECT_FALSE(settings.timecode_track);
}

TEST_F(ClipDirectoryTest, TracksAreOpenedWhenFirstNeededAndOnce) {
    auto const trace = std::make_shared<test::TraceFile>(clipWithTracks(2));
    unsigned handle = 0;
    ASSERT_EQ(open("clip", &handle, trace), KString());
    EXPECT_EQ(findClip(handle)->extra, nullptr);
    auto const entry = findClip(handle, OpenTracks::yes);
    ASSERT_EQ(entry->extra->tracks.size(), 2u);
    EXPECT_EQ(entry->extra->tracks[0].handle.number(), handle + 1);
    EXPECT_EQ(entry->extra->tracks[1].handle.number(), handle + 2);
    EXPECT_EQ(entry->extra->tracks[1].track.lengthInUnits(), 2u);
    auto const* first_extra = entry->extra.get();
    EXPECT_EQ(findClip(handle, OpenTracks::yes)->extra.get(), first_extra);
}

TEST_F(ClipDirectoryTest, TrackThatCannotBeOpenedIsLeftOut) {
    std::string const good = test::trackMeta("auk", test::rangeOfThisFile(0, UNIT));
    std::string const no_type = test::element("TrackMeta", test::rangeOfThisFile(0, UNIT));
    std::string const bad_grow = test::trackMeta(
        "auk", test::element("VFile", test::element("Grow", test::element("VFile", test::element("ThisFile", "")))));
    std::string const unknown_format = test::trackMeta("nonsense", test::rangeOfThisFile(0, UNIT));
    unsigned handle = 0;
    ASSERT_EQ(open("clip", &handle,
                   image(test::clipHeaderText(STANDARD, no_type + good + bad_grow + unknown_format + good), 4 * UNIT)),
              KString());
    auto const entry = findClip(handle, OpenTracks::yes);
    ASSERT_EQ(entry->extra->tracks.size(), 3u);
    EXPECT_TRUE(entry->extra->tracks[0].track.format().valid);
    EXPECT_FALSE(entry->extra->tracks[1].track.format().valid) << "an unknown format is no failure";
    EXPECT_TRUE(entry->extra->tracks[2].track.format().valid);
}

TEST_F(ClipDirectoryTest, AMissingTrackIsToldToWhoAsks) {
    std::string const good = test::trackMeta("auk", test::rangeOfThisFile(0, UNIT));
    std::string const no_type = test::element("TrackMeta", test::rangeOfThisFile(0, UNIT));
    unsigned handle = 0;
    ASSERT_EQ(open("clip", &handle, image(test::clipHeaderText(STANDARD, good + no_type + good), 4 * UNIT)), KString());
    EXPECT_EQ(openAllTracks(handle, "unknown"), KString("Bad track XML"));
    EXPECT_EQ(findClip(handle)->extra, nullptr) << "none is open";
    EXPECT_EQ(findClip(handle, OpenTracks::yes)->extra->tracks.size(), 2u);
    EXPECT_EQ(openAllTracks(handle, "unknown"), KString("Bad track XML")) << "it is still missing";
    EXPECT_EQ(openAllTracks(handle + 1000, "unknown"), KString("unknown"));
}

TEST_F(ClipDirectoryTest, TracksThatFailForAPassingReasonCanBeOpenedLater) {
    std::string const track =
        test::trackMeta("auk", test::element("VFile", test::element("Grow", test::element("MinLength", "0") +
                                                                                test::rangeOfThisFile(0, 65536))));
    std::string const grow_header = std::string("KLVNGROW") + std::string(4088, '\0');
    auto const file = image(test::clipHeaderText(STANDARD, track), 65536);
    file->put(32768, grow_header.data(), grow_header.size());
    auto const faulty = std::make_shared<test::FaultyFile>(file);
    unsigned handle = 0;
    ASSERT_EQ(open("clip", &handle, faulty), KString());
    faulty->failFrom(1);
    EXPECT_EQ(openAllTracks(handle, "unknown"), KString(test::FaultyFile::READ_FAULT));
    EXPECT_EQ(openAllTracks(handle, "unknown"), KString());
    EXPECT_EQ(findClip(handle)->extra->tracks.size(), 1u);
}

TEST_F(ClipDirectoryTest, EveryReadOfTrackOpeningMayFail) {
    // Two tracks in grow containers: one read each.
    auto const memory = image("", 0);
    std::string tracks;
    for (unsigned n = 0; n < 2; ++n) {
        tracks += test::trackMeta(
            "auk", test::element("VFile", test::element("Grow", test::element("MinLength", "0") +
                                                                    test::rangeOfThisFile(n * 65536, 65536))));
        std::string const grow_header = std::string("KLVNGROW") + std::string(4088, '\0');
        memory->put(32768 + static_cast<std::uint64_t>(n) * 65536, grow_header.data(), grow_header.size());
    }
    std::string const area = test::headerArea(test::clipHeaderText(STANDARD, tracks));
    memory->put(0, area.data(), area.size());

    for (std::uint64_t n = 1;; ++n) {
        auto const faulty = std::make_shared<FaultyFile>(memory);
        unsigned handle = 0;
        ASSERT_EQ(open("clip", &handle, faulty), KString());
        faulty->failFrom(n);
        auto const entry = findClip(handle, OpenTracks::yes);
        EXPECT_EQ(entry->extra->tracks.size(), faulty->struck() ? 1u : 2u) << n;
        closeClip(handle);
        if (!faulty->struck()) {
            EXPECT_EQ(n, 3u);
            break;
        }
    }
}

TEST_F(ClipDirectoryTest, FindTrackGivesOwnerAndTrackAndNothingForOtherHandles) {
    unsigned handle = 0;
    ASSERT_EQ(open("clip", &handle, clipWithTracks(1)), KString());
    auto const track_handle = findClip(handle, OpenTracks::yes)->extra->tracks[0].handle.number();
    auto const found = findTrack(track_handle);
    ASSERT_TRUE(found);
    EXPECT_EQ(found.entry, findClip(handle));
    EXPECT_EQ(found.track, found.entry->clip->tracks()[0].get());
    EXPECT_FALSE(findTrack(handle)) << "a clip handle is no track";
    EXPECT_FALSE(findTrack(0));
    EXPECT_FALSE(findTrack(track_handle + 1));
    EXPECT_EQ(findClip(track_handle), nullptr) << "a track handle is no clip";
}

TEST_F(ClipDirectoryTest, ClosingEndsTheTrackHandlesAndLetsTheFileGo) {
    auto const file = clipWithTracks(3);
    unsigned handle = 0;
    ASSERT_EQ(open("clip", &handle, file), KString());
    std::vector<std::uint32_t> handles;
    for (auto const& open_track : findClip(handle, OpenTracks::yes)->extra->tracks)
        handles.push_back(open_track.handle.number());
    closeClip(handle);
    for (auto track : handles)
        EXPECT_FALSE(findTrack(track));
    EXPECT_EQ(file.use_count(), 1);
}

TEST_F(ClipDirectoryTest, HolderOfAnEntryOutlivesTheClose) {
    auto const file = clipWithTracks(1);
    unsigned handle = 0, again = 0;
    ASSERT_EQ(open("clip", &handle, file), KString());
    auto held = findTrack(findClip(handle, OpenTracks::yes)->extra->tracks[0].handle.number());
    closeClip(handle);
    EXPECT_EQ(held.track->lengthInUnits(), 1u);
    std::string unit(UNIT, 'x');
    EXPECT_EQ(held.track->readUnit(0, unit.data()), KString());

    ASSERT_EQ(open("clip", &again, file), KString()) << "the name is free already";
    EXPECT_NE(again, handle);
    EXPECT_NE(findClip(again), held.entry);
    held = {};
    EXPECT_NE(findClip(again), nullptr);
}

// A file whose reads wait until the test lets them go.
class GatedFile : public test::WrappedFile {
  public:
    using WrappedFile::WrappedFile;

    void read(std::uint64_t position, std::uint32_t length, void* buffer,
              std::shared_ptr<CIO::CIOObject> done) override {
        {
            std::unique_lock lock(mutex);
            if (closed) {
                waiting = true;
                changed.notify_all();
                changed.wait(lock, [&] { return !closed; });
            }
        }
        inner->read(position, length, buffer, std::move(done));
    }
    void holdBack() {
        std::lock_guard lock(mutex);
        closed = true;
    }
    void awaitReader() {
        std::unique_lock lock(mutex);
        changed.wait(lock, [&] { return waiting; });
    }
    void open() {
        std::lock_guard lock(mutex);
        closed = false;
        changed.notify_all();
    }

  private:
    std::mutex mutex;
    std::condition_variable changed;
    bool closed = false, waiting = false;
};

std::shared_ptr<MemoryFile> clipWithGrowTrack() {
    auto const file = image(test::clipHeaderText(
        STANDARD,
        test::trackMeta("auk", test::element("VFile", test::element("Grow", test::rangeOfThisFile(0, 1 << 20))))));
    std::string const grow_header = std::string("KLVNGROW") + std::string(4088, '\0');
    file->put(32768, grow_header.data(), grow_header.size());
    return file;
}

TEST_F(ClipDirectoryTest, ClipClosedWhileItsTracksOpenDoesNotComeBack) {
    auto const gated = std::make_shared<GatedFile>(clipWithGrowTrack());
    unsigned handle = 0;
    ASSERT_EQ(open("clip", &handle, gated), KString());
    gated->holdBack();
    std::uint32_t track_handle = 0;
    std::thread query([&] {
        auto const entry = findClip(handle, OpenTracks::yes);
        ASSERT_EQ(entry->extra->tracks.size(), 1u) << "the query gets its answer";
        track_handle = entry->extra->tracks[0].handle.number();
    });
    gated->awaitReader();
    closeClip(handle);
    gated->open();
    query.join();
    EXPECT_NE(track_handle, 0u);
    EXPECT_FALSE(findTrack(track_handle));
    EXPECT_EQ(gated.use_count(), 1) << "nothing keeps the file open";
}

TEST_F(ClipDirectoryTest, LookUpsDoNotWaitForTrackOpening) {
    auto const gated = std::make_shared<GatedFile>(clipWithGrowTrack());
    unsigned slow = 0, quick = 0;
    ASSERT_EQ(open("slow", &slow, gated), KString());
    ASSERT_EQ(open("quick", &quick, clipWithTracks(1)), KString());
    auto const track = findClip(quick, OpenTracks::yes)->extra->tracks[0].handle.number();
    gated->holdBack();
    std::thread query([&] { findClip(slow, OpenTracks::yes); });
    gated->awaitReader();
    // All of this happens while the other thread waits for the disk.
    EXPECT_TRUE(findTrack(track));
    EXPECT_NE(findClip(quick, OpenTracks::yes), nullptr);
    EXPECT_NE(findClip(slow), nullptr);
    EXPECT_TRUE(isClipOpen("slow"));
    gated->open();
    query.join();
}

TEST_F(ClipDirectoryTest, ASlowClipDelaysOnlyItsOwnOpeners) {
    auto const gated = std::make_shared<GatedFile>(clipWithTracks(1));
    gated->holdBack();
    unsigned slow = 0, second = 0, quick = 0;
    std::thread opener([&] { EXPECT_EQ(openClip("slow", true, &slow, gated), KString()); });
    gated->awaitReader();
    std::thread sharer([&] { EXPECT_EQ(openClip("slow", false, &second, gated), KString()); });
    ASSERT_EQ(open("quick", &quick, clipWithTracks(1)), KString());
    EXPECT_EQ(closeClip(quick), KString());
    EXPECT_FALSE(isClipOpen("slow"));
    gated->open();
    opener.join();
    sharer.join();
    EXPECT_EQ(slow, second) << "the second opener waited, and shares the clip in the first one's mode";
    EXPECT_EQ(findClip(slow)->open_count, 2u);
    closeClip(slow);
    closeClip(slow);
    EXPECT_FALSE(isClipOpen("slow"));
}

TEST_F(ClipDirectoryTest, ReopeningWhileTheFormerEntryGoesSeesAllThatWasRecorded) {
    auto const file = clipWithGrowTrack();
    for (std::uint32_t round = 0; round < 20; ++round) {
        unsigned handle = 0, again = 0;
        ASSERT_EQ(openClip("clip", false, &handle, file), KString());
        auto held = findTrack(findClip(handle, OpenTracks::yes)->extra->tracks[0].handle.number());
        std::string const unit(UNIT, static_cast<char>(round + 1));
        std::uint32_t const end = held.track->lengthInUnits();
        ASSERT_EQ(end, round);
        ASSERT_EQ(held.track->writeUnit(end, unit.data(), UNIT), KString());
        closeClip(handle);
        std::thread letting_go([gone = std::move(held)]() mutable { gone = {}; });
        ASSERT_EQ(openClip("clip", false, &again, file), KString());
        {
            auto const reopened = findClip(again, OpenTracks::yes);
            ASSERT_EQ(reopened->extra->tracks.size(), 1u);
            EXPECT_EQ(reopened->extra->tracks[0].track.lengthInUnits(), round + 1);
        }
        letting_go.join();
        closeClip(again);
    }
}

TEST_F(ClipDirectoryTest, ClosingAllWritesBackAndEndsEveryHandle) {
    auto const file = clipWithGrowTrack();
    unsigned handle = 0, other = 0;
    ASSERT_EQ(openClip("clip", false, &handle, file), KString());
    ASSERT_EQ(open("other", &other, clipWithTracks(1)), KString());
    auto const track = findClip(handle, OpenTracks::yes)->extra->tracks[0].handle.number();
    std::string const unit(UNIT, 'u');
    ASSERT_EQ(findTrack(track).track->writeUnit(0, unit.data(), UNIT), KString());
    closeAllClips();
    EXPECT_EQ(findClip(handle), nullptr);
    EXPECT_EQ(findClip(other), nullptr);
    EXPECT_FALSE(findTrack(track));
    EXPECT_EQ(file.use_count(), 1);
    auto const length_field = file->bytes(32768 + 8, 8);
    EXPECT_EQ(static_cast<unsigned>(length_field[6]) * 256u + static_cast<unsigned>(length_field[7]), UNIT);
}

TEST_F(ClipDirectoryTest, ClosingAllWaitsForTheQueryThatStillHoldsAClip) {
    auto const file = clipWithGrowTrack();
    unsigned handle = 0;
    ASSERT_EQ(openClip("clip", false, &handle, file), KString());
    auto held = findTrack(findClip(handle, OpenTracks::yes)->extra->tracks[0].handle.number());
    test::Latch closing(1);
    std::thread query([&closing, mine = std::move(held)]() mutable {
        closing.wait();
        std::string const unit(UNIT, 'u');
        EXPECT_EQ(mine.track->writeUnit(0, unit.data(), UNIT), KString());
        mine = {};
    });
    {
        test::WhenWaiting const waiting([&] { closing.count_down(); });
        closeAllClips(KSemaphore::FOREVER);
        EXPECT_EQ(file.use_count(), 1);
    }
    query.join();
}

TEST_F(ClipDirectoryTest, ClosingAllGivesUpOnAQueryThatDoesNotReturn) {
    unsigned handle = 0;
    ASSERT_EQ(openClip("clip", false, &handle, clipWithGrowTrack()), KString());
    auto held = findTrack(findClip(handle, OpenTracks::yes)->extra->tracks[0].handle.number());
    closeAllClips(1);
    EXPECT_EQ(findClip(handle), nullptr);
    std::string const unit(UNIT, 'u');
    EXPECT_EQ(held.track->writeUnit(0, unit.data(), UNIT), KString()) << "what it holds stays good";
}

TEST_F(ClipDirectoryTest, DamagedHeadersNeverCrash) {
    std::string const good = test::clipHeaderText(STANDARD, audioTracks(3), "<TimecodeSource>striped</TimecodeSource>");
    for (std::size_t cut = 0; cut < good.size(); cut += 7) {
        unsigned handle = 0;
        EXPECT_EQ(open("clip", &handle, image(good.substr(0, cut))), KString("XML parsing error in clip header"));
    }
    for (std::size_t at = 0; at < good.size(); ++at) {
        std::string damaged = good;
        damaged[at] = static_cast<char>(damaged[at] ^ 0x15);
        unsigned handle = 0;
        if (open("clip", &handle, image(damaged, UNIT)).empty()) {
            findClip(handle, OpenTracks::yes);
            closeClip(handle);
        }
    }
    EXPECT_FALSE(isClipOpen("clip"));
}

TEST_F(ClipDirectoryTest, PartitionsWithHostileNumbersGiveTracksThatFailCleanly) {
    for (char const* start : {"0", "4096", "9223372036854775808", "18446744073709551615"})
        for (char const* length : {"0", "1", "4294967296", "9223372036854775807", "18446744073709551615"}) {
            std::string const vfile = test::element(
                "VFile", test::element("Partition", test::element("Start", start) + test::element("Length", length) +
                                                        test::element("VFile", test::element("ThisFile", ""))));
            unsigned handle = 0;
            ASSERT_EQ(openClip("clip", false, &handle,
                               image(test::clipHeaderText(STANDARD, test::trackMeta("auk", vfile)), 3 * UNIT)),
                      KString());
            auto const entry = findClip(handle, OpenTracks::yes);
            for (auto const& open_track : entry->extra->tracks) {
                EXPECT_LE(open_track.track.lengthInUnits(), 3u);
                std::string unit(UNIT, '\0');
                for (std::uint32_t number : {0u, 2u, 3u, 0xFFFFFFFFu})
                    open_track.track.readUnit(number, unit.data());
            }
            closeClip(handle);
        }
}

TEST_F(ClipDirectoryTest, EightThreadsOpenQueryAndCloseSharedAndOwnClips) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([i] {
            for (int n = 0; n < 60; ++n) {
                unsigned shared = 0, own = 0;
                std::string const name = "own" + std::to_string(i);
                ASSERT_EQ(openClip("shared", true, &shared, clipWithTracks(3)), KString());
                ASSERT_EQ(openClip(KString(name), true, &own, clipWithTracks(1)), KString());
                for (unsigned handle : {shared, own}) {
                    auto const entry = findClip(handle, OpenTracks::yes);
                    ASSERT_NE(entry, nullptr);
                    for (auto const& open_track : entry->extra->tracks) {
                        auto const found = findTrack(open_track.handle.number());
                        ASSERT_TRUE(found);
                        ASSERT_EQ(found.track, &open_track.track);
                        std::string unit(UNIT, 'x');
                        ASSERT_EQ(found.track->readUnit(0, unit.data()), KString());
                    }
                }
                closeClip(own);
                closeClip(shared);
            }
        });
    for (auto& thread : threads)
        thread.join();
    EXPECT_FALSE(isClipOpen("shared"));
}

}  // namespace
}  // namespace KelvonClip
