#include "clip/track.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "clip/clip.h"
#include "support/buffer.h"
#include "support/clip_image.h"
#include "support/memory_file.h"
#include "vfile/aligned_buffer.h"

namespace KelvonClip {
namespace {

using test::FaultyFile;
using test::MemoryFile;

constexpr std::uint32_t UINT_LIMIT = 0xFFFFFFFF;

TrackFormat formatOf(std::uint32_t unit_size, std::uint32_t stored_unit_size, std::uint32_t fields_per_unit) {
    TrackFormat format;
    format.valid = true;
    format.category = TrackCategory::video;
    format.unit_size = unit_size;
    format.stored_unit_size = stored_unit_size;
    format.fields_per_unit = fields_per_unit;
    return format;
}

// A clip with one track on a given file.
struct Bench {
    std::shared_ptr<MemoryFile> memory = std::make_shared<MemoryFile>();
    std::unique_ptr<Clip> clip;
    std::unique_ptr<Track> track;

    explicit Bench(TrackFormat const& format, std::uint32_t trim_start = 0, std::uint32_t trim_end = 0,
                   std::shared_ptr<VFileObject> file = nullptr) {
        ClipSettings settings;
        settings.frequency = VideoFrequency::f50;
        settings.resolution = VideoResolution::r1080i;
        settings.trim_start = trim_start;
        settings.trim_end = trim_end;
        clip = std::make_unique<Clip>(settings, memory, false);
        track = std::make_unique<Track>(*clip, format, file ? file : memory);
    }

    // Puts unit after unit of the stored size, each filled with its number + 1.
    void fill(std::uint32_t units) {
        std::uint32_t const size = track->format().stored_unit_size;
        for (std::uint32_t unit = 0; unit < units; ++unit)
            memory->put(std::uint64_t{unit} * size, std::string(size, static_cast<char>(unit + 1)).data(), size);
    }
    // The number of the stored unit that a read returns; 0 if it returns zeros.
    int readNumber(std::uint32_t unit) {
        AlignedBuffer buffer(track->unitSize());
        std::memset(buffer.data(), 0x7E, buffer.size());
        EXPECT_EQ(track->readUnit(unit, buffer.data()), KString());
        for (std::size_t at = 0; at < buffer.size(); ++at)
            if (buffer.data()[at] != buffer.data()[0]) ADD_FAILURE() << "mixed bytes at " << at;
        return static_cast<int>(buffer.data()[0]);
    }
};

// Notes the address of every transfer.
class AddressFile : public test::WrappedFile {
  public:
    using WrappedFile::WrappedFile;
    std::vector<void const*> addresses;

    void read(std::uint64_t position, std::uint32_t length, void* buffer,
              std::shared_ptr<CIO::CIOObject> done) override {
        addresses.push_back(buffer);
        inner->read(position, length, buffer, std::move(done));
    }
    void write(std::uint64_t position, std::uint32_t length, void const* buffer,
               std::shared_ptr<CIO::CIOObject> done) override {
        addresses.push_back(buffer);
        inner->write(position, length, buffer, std::move(done));
    }
};

TEST(Track, LengthIsTheWholeUnitsOfTheFile) {
    Bench bench(formatOf(4096, 4096, 2));
    EXPECT_EQ(bench.track->lengthInUnits(), 0u);
    for (auto [bytes, units] : {std::pair{1u, 0u}, {4095u, 0u}, {4096u, 1u}, {8191u, 1u}, {8192u, 2u}, {81920u, 20u}}) {
        bench.memory->resize(bytes);
        EXPECT_EQ(bench.track->lengthInUnits(), units) << bytes;
        EXPECT_EQ(bench.track->lengthInFields(), units * 2) << bytes;
    }
}

TEST(Track, TenUnitsTrimmedByEightAtBothEndsKeepTwo) {
    Bench bench(formatOf(4096, 4096, 1), 8, 8);
    bench.fill(10);
    EXPECT_EQ(bench.track->lengthInUnits(), 2u);
    EXPECT_EQ(bench.readNumber(0), 9) << "the head takes all it can: 8 units";
    EXPECT_EQ(bench.readNumber(1), 10);
    EXPECT_EQ(bench.readNumber(2), 0);
}

// A host that fails to tell its length counts as empty.
class ForgetfulHost : public test::WrappedFile {
  public:
    using WrappedFile::WrappedFile;
    int failures = 0;  // how many more queries fail

    std::uint64_t length() override { return failures > 0 ? (--failures, 0) : inner->length(); }
    bool lengthIsKnown() override { return failures > 0 ? (--failures, false) : true; }
};

TEST(Track, AUnitIsNotReadAsZerosBecauseTheLengthIsUnknown) {
    auto const memory = std::make_shared<MemoryFile>();
    auto const host = std::make_shared<ForgetfulHost>(memory);
    Bench bench(formatOf(4096, 4096, 1), 0, 0, host);
    bench.memory = memory;
    bench.fill(2);
    AlignedBuffer buffer(4096);
    host->failures = 2;
    EXPECT_EQ(bench.track->readUnit(1, buffer.data()), KString("Read failed"));
    host->failures = 1;
    EXPECT_EQ(bench.readNumber(1), 2) << "the second query succeeds";
    EXPECT_EQ(bench.readNumber(2), 0);
}

TEST(Track, OneUnitIgnoresTrims) {
    Bench bench(formatOf(4096, 4096, 1), 5, 5);
    bench.fill(1);
    EXPECT_EQ(bench.track->lengthInUnits(), 1u);
    EXPECT_EQ(bench.readNumber(0), 1);
}

// Removes units one at a time, first from the start, while more than two are left.
TEST(Track, TrimsAgreeWithCountingUnitsOff) {
    for (std::uint32_t fields : {1u, 2u})
        for (std::uint32_t units = 0; units <= 7; ++units)
            for (std::uint32_t start = 0; start <= 17; ++start)
                for (std::uint32_t end = 0; end <= 17; ++end) {
                    std::uint32_t head = 0, left = units;
                    for (std::uint32_t trim = start; trim >= fields && left > 2; trim -= fields)
                        ++head, --left;
                    for (std::uint32_t trim = end; trim >= fields && left > 2; trim -= fields)
                        --left;
                    Bench bench(formatOf(512, 512, fields), start, end);
                    bench.fill(units);
                    ASSERT_EQ(bench.track->lengthInUnits(), left) << units << ' ' << start << ' ' << end;
                    ASSERT_EQ(bench.track->lengthInFields(), left * fields);
                    ASSERT_EQ(bench.readNumber(0), left > 0 ? static_cast<int>(head + 1) : 0);
                    ASSERT_EQ(bench.readNumber(left), 0);
                }
}

TEST(Track, GreatestTrimsDoNotWrap) {
    Bench bench(formatOf(512, 512, 1), UINT_LIMIT, UINT_LIMIT);
    bench.fill(5);
    EXPECT_EQ(bench.track->lengthInUnits(), 2u);
    EXPECT_EQ(bench.readNumber(0), 4);
}

TEST(Track, LengthBeyond32BitsIsReportedAndClamped) {
    Bench bench(formatOf(512, 512, 2));
    bench.memory->resize(std::uint64_t{512} * UINT_LIMIT);
    EXPECT_EQ(bench.track->lengthInUnits(), UINT_LIMIT);
    EXPECT_EQ(bench.track->lengthInFields(), UINT_LIMIT) << "fields beyond 32 bits are clamped too";

    bench.memory->resize(std::uint64_t{512} * UINT_LIMIT + 512);
    testing::internal::CaptureStderr();
    EXPECT_EQ(bench.track->lengthInUnits(), UINT_LIMIT);
    auto const line = testing::internal::GetCapturedStderr();
    EXPECT_EQ(line.rfind("track:", 0), 0u) << line;
    EXPECT_NE(line.find(": Assertion failed: 'l <= UINT_MAX'\n"), std::string::npos) << line;
}

TEST(Track, UnitJustPastTheEndReadsAsZerosWithoutTouchingTheFile) {
    auto memory = std::make_shared<MemoryFile>();
    auto trace = std::make_shared<test::TraceFile>(memory);
    for (std::uint32_t stored : {4096u, 8192u}) {
        Bench bench(formatOf(4096, stored, 1), 0, 0, trace);
        memory->resize(std::uint64_t{stored} * 3);
        EXPECT_EQ(bench.readNumber(3), 0);
        EXPECT_EQ(bench.readNumber(UINT_LIMIT), 0);
        EXPECT_TRUE(trace->take().empty());
        bench.readNumber(2);
        EXPECT_EQ(trace->take(), (std::vector<test::TraceFile::Entry>{
                                     {test::TraceFile::read_request, std::uint64_t{stored} * 2, stored}}));
    }
}

TEST(Track, ReadPastTheEndFillsExactlyTheUnitSize) {
    Bench bench(formatOf(1000, 4096, 1));
    std::vector<unsigned char> buffer(1100, 0xEE);
    EXPECT_EQ(bench.track->readUnit(0, buffer.data()), KString());
    EXPECT_EQ(std::count(buffer.begin(), buffer.begin() + 1000, 0), 1000);
    EXPECT_EQ(std::count(buffer.begin() + 1000, buffer.end(), 0xEE), 100);
}

TEST(Track, AlignedBuffersOfTheStoredSizeAreNeverCopied) {
    auto memory = std::make_shared<MemoryFile>();
    auto addresses = std::make_shared<AddressFile>(memory);
    Bench bench(formatOf(8192, 8192, 1), 0, 0, addresses);
    AlignedBuffer buffer(8192);
    EXPECT_EQ(bench.track->writeUnit(0, buffer.data(), 8192), KString());
    EXPECT_EQ(bench.track->readUnit(0, buffer.data()), KString());
    EXPECT_EQ(addresses->addresses, (std::vector<void const*>{buffer.data(), buffer.data()}));
    EXPECT_EQ(bench.track->bufferPool().freeCount(), 0u);
}

TEST(Track, MisalignedBuffersGoThroughAnAlignedOne) {
    auto memory = std::make_shared<MemoryFile>();
    auto addresses = std::make_shared<AddressFile>(memory);
    Bench bench(formatOf(8192, 8192, 1), 0, 0, addresses);
    AlignedBuffer memory_block(8192 + 4096);
    auto* const misaligned = memory_block.data() + 16;
    std::string const unit = test::patternBytes(8192, 1);
    std::memcpy(misaligned, unit.data(), unit.size());
    EXPECT_EQ(bench.track->writeUnit(0, misaligned, 8192), KString());
    std::memset(misaligned, 0, 8192);
    EXPECT_EQ(bench.track->readUnit(0, misaligned), KString());
    EXPECT_EQ(std::memcmp(misaligned, unit.data(), 8192), 0);
    ASSERT_EQ(addresses->addresses.size(), 2u);
    for (auto const* address : addresses->addresses) {
        EXPECT_NE(address, misaligned);
        EXPECT_TRUE(isAlignedForDirectIO(address));
    }
    EXPECT_EQ(bench.track->bufferPool().freeCount(), 1u) << "one buffer served both";
}

TEST(Track, ShortUnitIsPaddedWithZeros) {
    Bench bench(formatOf(5000, 8192, 2));
    std::string const old = test::patternBytes(5000, 1);
    ASSERT_EQ(bench.track->writeUnit(0, old.data(), 5000), KString());
    for (std::uint32_t size : {1u, 4999u, 5000u}) {
        std::string const unit = test::patternBytes(size, size);
        ASSERT_EQ(bench.track->writeUnit(0, unit.data(), size), KString());
        auto const stored = bench.memory->bytes(0, 8192);
        EXPECT_EQ(std::memcmp(stored.data(), unit.data(), size), 0) << size;
        EXPECT_TRUE(std::all_of(stored.begin() + size, stored.end(), [](auto byte) { return byte == std::byte{0}; }))
            << size;
    }
    EXPECT_EQ(bench.memory->realSize(), 8192u);
}

TEST(Track, OneByteToATrackOf4096WritesOneByteAndZeros) {
    Bench bench(formatOf(4096, 4096, 1));
    AlignedBuffer buffer(4096);
    std::memset(buffer.data(), 0x55, 4096);
    ASSERT_EQ(bench.track->writeUnit(0, buffer.data(), 1), KString());
    auto const stored = bench.memory->bytes(0, 4096);
    EXPECT_EQ(stored[0], std::byte{0x55});
    EXPECT_EQ(std::count(stored.begin() + 1, stored.end(), std::byte{0}), 4095);
}

TEST(Track, EmptyWriteMakesAUnitOfZeros) {
    Bench bench(formatOf(512, 512, 1));
    bench.fill(1);
    ASSERT_EQ(bench.track->writeUnit(0, "x", 0), KString());
    EXPECT_EQ(bench.readNumber(0), 0);
}

TEST(Track, WriteMessagesComeInTheirOrder) {
    Bench bench(formatOf(512, 512, 1));
    char buffer[1024] = {};
    EXPECT_EQ(bench.track->writeUnit(0, nullptr, 513), KString("Buffer is too large"));
    EXPECT_EQ(bench.track->writeUnit(0, buffer, 513), KString("Buffer is too large"));
    testing::internal::CaptureStderr();
    EXPECT_EQ(bench.track->writeUnit(0, nullptr, 512), KString("Invalid argument (null pointer)"));
    EXPECT_NE(testing::internal::GetCapturedStderr().find("Assertion failed: 'buf != 0'"), std::string::npos);
    EXPECT_EQ(bench.memory->realSize(), 0u);
    EXPECT_EQ(bench.track->writtenLength(), 0u);
    EXPECT_EQ(bench.track->writeUnit(0, buffer, 512), KString());
}

TEST(Track, ReadIntoNothingIsRefused) {
    Bench bench(formatOf(512, 512, 1));
    bench.fill(1);
    for (std::uint32_t unit : {0u, 1u}) {
        testing::internal::CaptureStderr();
        EXPECT_EQ(bench.track->readUnit(unit, nullptr), KString("Invalid argument (null pointer)"));
        EXPECT_NE(testing::internal::GetCapturedStderr().find("Assertion failed: 'buf != 0'"), std::string::npos);
    }
}

TEST(Track, InvalidFormatHasNoLengthAndRefusesUnits) {
    Bench bench(TrackFormat{}, 3, 3);
    bench.memory->resize(1 << 20);
    char buffer[16] = {};
    EXPECT_EQ(bench.track->format().category, TrackCategory::none);
    EXPECT_EQ(bench.track->unitSize(), 0u);
    EXPECT_EQ(bench.track->lengthInUnits(), 0u);
    EXPECT_EQ(bench.track->lengthInFields(), 0u);
    EXPECT_EQ(bench.track->readUnit(0, buffer), KString("Read from invalid track"));
    EXPECT_EQ(bench.track->writeUnit(0, buffer, 0), KString("Read from invalid track"));
    EXPECT_EQ(bench.track->writeUnit(0, buffer, 1), KString("Buffer is too large"));
    EXPECT_EQ(bench.track->writtenLength(), 0u);
}

TEST(Track, PositionsBeyond32BitsAreExact) {
    std::uint32_t const size = 475136;
    Bench bench(formatOf(472576, size, 2));
    std::string const unit = test::patternBytes(472576, 9);
    for (std::uint32_t number : {9041u, 65536u, 0x80000000u, 0xFFFFFFFEu}) {
        ASSERT_EQ(bench.track->writeUnit(number, unit.data(), 472576), KString()) << number;
        auto const stored = bench.memory->bytes(std::uint64_t{number} * size, 472576);
        EXPECT_EQ(std::memcmp(stored.data(), unit.data(), unit.size()), 0) << number;
        std::string back(472576, '\0');
        ASSERT_EQ(bench.track->readUnit(number, back.data()), KString());
        EXPECT_EQ(back, unit);
    }
}

TEST(Track, WriteCountsUnitsFromTheTrimmedStart) {
    Bench bench(formatOf(512, 512, 2), 6, 0);
    bench.fill(10);
    ASSERT_EQ(bench.track->writeUnit(0, std::string(512, '\x63').data(), 512), KString());
    EXPECT_EQ(bench.memory->bytes(3 * 512, 1)[0], std::byte{0x63}) << "three units are cut off";
    EXPECT_EQ(bench.readNumber(0), 0x63);
}

TEST(Track, WrittenLengthIsTheEndOfTheFurthestUnitInFields) {
    Bench bench(formatOf(512, 512, 2));
    std::string const unit(512, 'x');
    bench.track->writeUnit(4, unit.data(), 512);
    EXPECT_EQ(bench.track->writtenLength(), 10u);
    bench.track->writeUnit(1, unit.data(), 512);
    EXPECT_EQ(bench.track->writtenLength(), 10u);
    EXPECT_EQ(bench.clip->writtenLength(), 10u);
    bench.track->writeUnit(0xFFFFFFFF, unit.data(), 512);
    EXPECT_EQ(bench.track->writtenLength(), UINT_LIMIT) << "clamped, not wrapped";
}

TEST(Track, FailuresOfTheFileArriveAndLeaveNoTraceInThePool) {
    auto memory = std::make_shared<MemoryFile>();
    auto faulty = std::make_shared<FaultyFile>(memory);
    Bench bench(formatOf(1000, 4096, 1), 0, 0, faulty);
    std::string unit = test::patternBytes(1000, 3);
    ASSERT_EQ(bench.track->writeUnit(0, unit.data(), 1000), KString());

    faulty->failFrom(1, FaultyFile::once, FaultyFile::reads_and_writes, FaultyFile::torn);
    EXPECT_EQ(bench.track->readUnit(0, unit.data()), KString(FaultyFile::READ_FAULT));
    EXPECT_EQ(unit, test::patternBytes(1000, 3)) << "a failed read hands nothing over";
    faulty->failFrom(1);
    EXPECT_EQ(bench.track->writeUnit(0, unit.data(), 1000), KString(FaultyFile::WRITE_FAULT));

    EXPECT_EQ(bench.track->bufferPool().freeCount(), 1u);
    faulty->heal();
    ASSERT_EQ(bench.track->writeUnit(1, unit.data(), 1), KString());
    auto const padding = memory->bytes(4097, 4095);
    EXPECT_EQ(std::count(padding.begin(), padding.end(), std::byte{0}), 4095);
}

// Completion of an asynchronous transfer, as a background reader uses it.
class Noted : public CIO::CIOObject {
  public:
    Noted(int& completions, KString& message) : count(completions), text(message) {}
    void complete() override {
        ++count;
        if (error()) text = *error();
    }

  private:
    int& count;
    KString& text;
};

TEST(Track, AsynchronousTransfersCompleteOnceAndAfterTheCallersBufferIsFilled) {
    for (std::uint32_t stored : {512u, 1024u}) {
        Bench bench(formatOf(512, stored, 1));
        bench.fill(2);
        int completions = 0;
        KString text;
        std::string buffer(512, '\0');
        bench.track->readUnit(1, buffer.data(), CIO::makeCompletion<Noted>(completions, text));
        EXPECT_EQ(completions, 1);
        EXPECT_EQ(text, KString());
        EXPECT_EQ(buffer, std::string(512, '\2'));
        bench.track->writeUnit(2, buffer.data(), 512, CIO::makeCompletion<Noted>(completions, text));
        EXPECT_EQ(completions, 2);
        bench.track->readUnit(9, buffer.data(), CIO::makeCompletion<Noted>(completions, text));
        EXPECT_EQ(completions, 3);
        bench.track->writeUnit(0, buffer.data(), 513, CIO::makeCompletion<Noted>(completions, text));
        EXPECT_EQ(completions, 4);
        EXPECT_EQ(text, KString("Buffer is too large"));
    }
}

TEST(Track, UnitsThatLieInTheBufferAsInTheFileAreOneRequest) {
    auto memory = std::make_shared<MemoryFile>();
    auto trace = std::make_shared<test::TraceFile>(memory);
    using Entry = test::TraceFile::Entry;
    Bench bench(formatOf(4096, 4096, 1), 0, 0, trace);
    test::Buffer const units(5 * 4096, 3);
    ASSERT_EQ(bench.track->writeUnits(2, 5, units.memory, 4096), KString());
    EXPECT_EQ(trace->take(), (std::vector<Entry>{{test::TraceFile::write_request, 2 * 4096, 5 * 4096}}));
    EXPECT_EQ(bench.track->writtenLength(), 7u);

    test::Buffer back(5 * 4096);
    ASSERT_EQ(bench.track->readUnits(2, 5, back.memory, 4096), KString());
    EXPECT_EQ(trace->take(), (std::vector<Entry>{{test::TraceFile::read_request, 2 * 4096, 5 * 4096}}));
    EXPECT_TRUE(back == units);
}

TEST(Track, UnitsThatLieOtherwiseAreCopiedForOneWriteAndReadOneByOne) {
    for (auto [unit_size, stored, stride] : {std::tuple{4096u, 4096u, 8192u}, {4000u, 4096u, 4096u}}) {
        auto memory = std::make_shared<MemoryFile>();
        auto trace = std::make_shared<test::TraceFile>(memory);
        Bench bench(formatOf(unit_size, stored, 1), 0, 0, trace);
        test::Buffer const units(3 * stride, 4);
        ASSERT_EQ(bench.track->writeUnits(0, 3, units.memory, stride), KString());
        using Entry = test::TraceFile::Entry;
        EXPECT_EQ(trace->take(), (std::vector<Entry>{{test::TraceFile::write_request, 0, 3 * stored}}));
        test::Buffer back(3 * stride, 5);
        ASSERT_EQ(bench.track->readUnits(0, 3, back.memory, stride), KString());
        EXPECT_EQ(trace->take().size(), 3u);
        for (std::uint32_t i = 0; i < 3; ++i)
            EXPECT_EQ(std::memcmp(back.memory + i * stride, units.memory + i * stride, unit_size), 0) << i;
        test::Buffer const untouched(3 * stride, 5);
        EXPECT_EQ(back.memory[unit_size], untouched.memory[unit_size]) << "what lies between units is the caller's";
    }
}

TEST(Track, UnitsPastTheEndReadAsZerosAmongOthers) {
    Bench bench(formatOf(4096, 4096, 1));
    bench.fill(3);
    test::Buffer back(4 * 4096, 9);
    ASSERT_EQ(bench.track->readUnits(1, 4, back.memory, 4096), KString());
    for (std::uint32_t i = 0; i < 4; ++i)
        EXPECT_EQ(back.memory[i * 4096], static_cast<std::byte>(i < 2 ? i + 2 : 0)) << i;
    ASSERT_EQ(bench.track->readUnits(UINT_LIMIT - 1, 4, back.memory, 4096), KString());
    EXPECT_EQ(back.memory[2 * 4096], std::byte{0}) << "numbers do not wrap";
    EXPECT_EQ(bench.track->writeUnits(UINT_LIMIT, 2, back.memory, 4096), KString("Too many units"));
    EXPECT_EQ(bench.readNumber(0), 1);
}

TEST(Track, ThreadsReadAndWriteUnitsOfOneTrackAtOnce) {
    Bench bench(formatOf(1000, 4096, 2));
    std::vector<std::thread> threads;
    for (std::uint32_t i = 0; i < 8; ++i)
        threads.emplace_back([&bench, i] {
            for (std::uint32_t n = 0; n < 50; ++n) {
                std::uint32_t const unit = n * 8 + i;
                std::string const bytes = test::patternBytes(1000, unit);
                ASSERT_EQ(bench.track->writeUnit(unit, bytes.data(), 1000), KString());
                std::string back(1000, '\0');
                ASSERT_EQ(bench.track->readUnit(unit, back.data()), KString());
                ASSERT_EQ(back, bytes);
            }
        });
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(bench.track->lengthInUnits(), 400u);
    EXPECT_EQ(bench.track->writtenLength(), 800u);
    EXPECT_EQ(bench.clip->writtenLength(), 800u);
}

// --- opening from a TrackMeta element ------------------------------------------------------------------------------

Track::Opened open(Clip& clip, std::string const& text) {
    XmlTree tree;
    EXPECT_TRUE(tree.parse(text)) << text;
    return Track::open(clip, tree.root());
}

TEST(TrackOpen, MissingTrackTypeOrVFileIsBadTrackXML) {
    Bench bench(TrackFormat{});
    std::string const range = test::rangeOfThisFile(0, 4096);
    for (auto const& text :
         {test::element("TrackMeta", range), test::element("TrackMeta", test::element("TrackType", "auk")),
          test::element("TrackMeta", "")}) {
        auto const opened = open(*bench.clip, text);
        EXPECT_EQ(opened.error, KString("Bad track XML")) << text;
        EXPECT_EQ(opened.track, nullptr);
    }
}

TEST(TrackOpen, UnusableVFileGivesItsOwnMessage) {
    Bench bench(TrackFormat{});
    auto const opened = open(*bench.clip, test::trackMeta("auk", test::element("VFile", test::element("Odd", ""))));
    EXPECT_EQ(opened.error, KString("Bad VFile Spec"));
    EXPECT_EQ(opened.track, nullptr);
}

TEST(TrackOpen, FormatComesFromTypeAndStandardAndDataFromTheTrackDataArea) {
    Bench bench(TrackFormat{});
    bench.memory->resize(1 << 20);
    bench.memory->put(8192, std::string(32768, 'd').data(), 32768);
    auto const opened = open(*bench.clip, test::trackMeta("auk", test::rangeOfThisFile(8192, 65536)));
    ASSERT_EQ(opened.error, KString());
    EXPECT_EQ(opened.track->format().category, TrackCategory::audio);
    EXPECT_EQ(opened.track->unitSize(), 8u * 4096);
    EXPECT_EQ(opened.track->lengthInUnits(), 2u);
    std::string unit(8 * 4096, '\0');
    ASSERT_EQ(opened.track->readUnit(0, unit.data()), KString());
    EXPECT_EQ(unit, std::string(32768, 'd'));
    EXPECT_EQ(opened.track->videoStandard(), VideoStandard::s1080i_50);
}

TEST(TrackOpen, UnknownFormatGivesAKeptTrackThatIsInvalid) {
    Bench bench(TrackFormat{});
    for (char const* type : {"nonsense", "", "avci100-720p", "jp2@102"}) {
        auto const opened = open(*bench.clip, test::trackMeta(type, test::rangeOfThisFile(0, 65536)));
        ASSERT_EQ(opened.error, KString()) << type;
        EXPECT_FALSE(opened.track->format().valid) << type;
        EXPECT_EQ(opened.track->lengthInUnits(), 0u) << type;
    }
}

}  // namespace
}  // namespace KelvonClip
