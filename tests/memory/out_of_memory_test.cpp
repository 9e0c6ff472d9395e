// Running out of memory is an error like any other: whichever allocation of a call fails, the call gives "Out of
// memory" or its neutral value, nothing that was acknowledged is lost, and the library works again when there is
// memory.
#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <functional>
#include <iterator>
#include <memory>
#include <new>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <kelvonclip/c_api.h>
#include <kelvonclip/kelvon_clip.h>
#include <kelvonclip/kelvon_timecode.h>
#include <kelvonclip/message.h>
#include <kelvonclip/seq_read.h>
#include <kelvonclip/seq_write.h>
#include <kelvonclip/track.h>
#include <kelvonclip/track_format.h>
#include <kelvonclip/units.h>
#include <kelvonclip/version.h>

#include "foundation/ksemaphore.h"
#include "foundation/string_stash.h"
#include "io_engines.h"
#include "memory/allocation_walk.h"
#include "platform/task_pool.h"
#include "platform/transfer_memory.h"
#include "replaced_allocation.h"
#include "support/child.h"
#include "support/scratch_path.h"

namespace KelvonClip {
namespace {

using test::AllocationWalk;
using test::Failures;
using test::Memory;

constexpr VideoStandard STANDARD = VideoStandard::s1080i_50;
constexpr unsigned SUBCHANNELS = 16;    // so that a unit has 64 KiB, for which memory is mapped
constexpr unsigned UNIT_SAMPLES = 960;  // of each subchannel
constexpr unsigned RECORDED = 12;       // units of each track at the start: more than one run of the reader

enum TrackIndex { AUDIO, TIMECODE, TRACKS };

std::wstring said(wchar_t const* message) { return message == nullptr ? L"" : message; }

#define EXPECT_OK(call) EXPECT_EQ(said(call), L"")
#define ASSERT_OK(call) ASSERT_EQ(said(call), L"")
// A message that a call may give when memory runs out: none, or the one that needs no memory.
#define EXPECT_FINE(message)                                                                                           \
    EXPECT_TRUE((message) == nullptr || (message) == OUT_OF_MEMORY) << testing::PrintToString(said(message))

// A folder in memory, if there is one, because flushing takes no time there.
std::filesystem::path inMemory() {
    std::filesystem::path const place = "/dev/shm";
    return std::filesystem::is_directory(place) ? place : std::filesystem::temp_directory_path();
}

// A unit that holds one byte everywhere, at an address that direct transfers accept, or `aside` bytes beside it.
class Unit {
  public:
    Unit(unsigned size, std::uint8_t byte, unsigned aside = 0)
        : length(size), memory(static_cast<std::uint8_t*>(::operator new(size + aside, ALIGNMENT))),
          begin(memory + aside) {
        std::memset(begin, byte, length);
    }
    ~Unit() { ::operator delete(memory, ALIGNMENT); }
    Unit(Unit const&) = delete;
    Unit& operator=(Unit const&) = delete;

    void* data() { return begin; }
    bool holds(std::uint8_t byte) const { return begin[0] == byte && std::memcmp(begin, begin + 1, length - 1) == 0; }

  private:
    static constexpr std::align_val_t ALIGNMENT{4096};
    unsigned length;
    std::uint8_t* memory;
    std::uint8_t* begin;
};

class OutOfMemory : public test::BothFailures {
  protected:
    void SetUp() override {
        unsigned const clip = create(name);
        for (unsigned unit = 0; unit < RECORDED; ++unit)
            for (auto track : {AUDIO, TIMECODE})
                write(clip, track, unit, static_cast<std::uint8_t>(1 + unit + 100 * track));
        clip_close(clip);
    }

    // One call after the other creates a clip; the calls that have been made are counted in `done`.
    static wchar_t const* create(std::wstring const& file, unsigned& creation, unsigned& clip, unsigned& done) {
        std::function<wchar_t const*()> const calls[] = {
            [&] { return create_begin(file.c_str(), STANDARD, &creation); },
            [&] { return cfg_track_count_audio(creation, 1); },
            [&] { return cfg_audio_hemlock(creation, SUBCHANNELS); },
            [&] { return cfg_track_timecode(creation); },
            [&] { return create_finish(creation, &clip); },
        };
        for (; done < std::size(calls); ++done)
            if (wchar_t const* const message = calls[done]()) return message;
        return nullptr;
    }
    static unsigned create(std::wstring const& file) {
        unsigned creation = 0, clip = 0, done = 0;
        EXPECT_OK(create(file, creation, clip, done));
        return clip;
    }

    // Writes a unit and remembers what the library has acknowledged.
    void write(unsigned clip, TrackIndex track, unsigned unit, std::uint8_t byte) {
        unsigned const handle = clip_get_track(clip, track);
        Unit content(track_unit_size(handle), byte);
        ASSERT_OK(track_write(handle, unit, content.data(), track_unit_size(handle)));
        acknowledged[track].at(unit) = byte;
    }

    void expectAcknowledged(unsigned clip) const {
        ASSERT_EQ(clip_track_count(clip), TRACKS);
        for (auto track : {AUDIO, TIMECODE}) {
            unsigned const handle = clip_get_track(clip, track);
            Unit content(track_unit_size(handle), 0);
            for (unsigned unit = 0; unit < acknowledged[track].size(); ++unit) {
                if (!acknowledged[track][unit]) continue;
                ASSERT_LT(unit, track_length_in_units(handle));
                ASSERT_OK(track_read(handle, unit, content.data()));
                ASSERT_TRUE(content.holds(*acknowledged[track][unit])) << "track " << track << ", unit " << unit;
            }
        }
    }

    // Opens the clip anew and looks for everything.
    void expectAllInTheFile() const {
        unsigned clip = 0;
        ASSERT_OK(clip_open(name.c_str(), &clip));
        expectAcknowledged(clip);
        clip_close(clip);
    }

    ScratchPath folder;
    std::wstring const name = folder.name("recorded.clip");
    std::array<std::array<std::optional<std::uint8_t>, 1000>, TRACKS> acknowledged;  // the byte of each unit
};

TEST(FailingMemory, IncludesWhatIsMapped) {
    Memory::failFrom(1, Failures::one);
    EXPECT_THROW(platform::allocateTransferMemory(SUBCHANNELS * 4096), std::bad_alloc);
    EXPECT_TRUE(Memory::recover());
}

TEST_P(OutOfMemory, WhileOpening) {
    walk([&](AllocationWalk& failing) {
        unsigned clip = 0;
        wchar_t const* message = nullptr;
        run(failing, [&] { message = clip_open(name.c_str(), &clip); });
        EXPECT_FINE(message);
        EXPECT_EQ(clip != 0, message == nullptr);
        clip_close(clip);
        expectAllInTheFile();
    });
}

TEST_P(OutOfMemory, WhileAskingForTracks) {
    walk([&](AllocationWalk& failing) {
        unsigned clip = 0;
        ASSERT_OK(clip_open(name.c_str(), &clip));
        unsigned count = 0, length = 0, tracks[TRACKS] = {};
        run(failing, [&] {
            count = clip_track_count(clip);
            length = clip_get_length(clip);
            for (auto track : {AUDIO, TIMECODE})
                tracks[track] = clip_get_track(clip, track);
        });
        EXPECT_TRUE(count == 0 || count == TRACKS) << count;
        EXPECT_TRUE(length == 0 || length == RECORDED) << length;
        for (auto track : {AUDIO, TIMECODE})
            EXPECT_TRUE(tracks[track] == 0 || tracks[track] == clip_get_track(clip, track));
        expectAcknowledged(clip);
        clip_close(clip);
    });
}

TEST_P(OutOfMemory, WhileReading) {
    unsigned clip = 0;
    ASSERT_OK(clip_open(name.c_str(), &clip));
    unsigned const audio = clip_get_track(clip, AUDIO), timecode = clip_get_track(clip, TIMECODE);
    walk([&](AllocationWalk& failing) {
        Unit direct(track_unit_size(audio), 0), copied(track_unit_size(audio), 0, 1);
        wchar_t const* messages[3] = {};
        // A new thread must create its ring.
        std::thread([&] {
            run(failing, [&] {
                messages[0] = track_read(audio, 0, direct.data());
                messages[1] = track_read(audio, 1, copied.data());
                messages[2] = track_get_timecode(timecode, 0, nullptr, nullptr);
                track_valid_timecode(timecode, 0);
            });
            expectAcknowledged(clip);
        }).join();
        for (auto const* message : messages)
            EXPECT_FINE(message);
        EXPECT_TRUE(messages[0] != nullptr || direct.holds(1));
        EXPECT_TRUE(messages[1] != nullptr || copied.holds(2));
    });
    clip_close(clip);
}

TEST_P(OutOfMemory, WhileWriting) {
    walk([&](AllocationWalk& failing) {
        unsigned clip = 0;
        ASSERT_OK(clip_open_rw(name.c_str(), &clip));
        unsigned const audio = clip_get_track(clip, AUDIO), size = track_unit_size(audio);
        unsigned const appended = track_length_in_units(audio);
        auto const byte = static_cast<std::uint8_t>(failing.allocation());
        Unit direct(size, byte), copied(size, byte, 1);
        wchar_t const* messages[2] = {};
        run(failing, [&] {
            messages[0] = track_write(audio, appended, direct.data(), size);
            messages[1] = track_write(audio, 0, copied.data(), size);
        });
        for (auto const* message : messages)
            EXPECT_FINE(message);
        if (messages[0] == nullptr) acknowledged[AUDIO].at(appended) = byte;
        // After a failed write the contents of the unit are not specified.
        acknowledged[AUDIO][0] = messages[1] == nullptr ? std::optional(byte) : std::nullopt;
        expectAcknowledged(clip);
        clip_close(clip);
        expectAllInTheFile();
    });
}

TEST_P(OutOfMemory, WhileTransferringFrames) {
    walk([&](AllocationWalk& failing) {
        constexpr unsigned TOGETHER = 2;
        unsigned clip = 0;
        ASSERT_OK(clip_open_rw(name.c_str(), &clip));
        auto const byte = static_cast<std::uint8_t>(failing.allocation());
        UnitRun runs[TRACKS];
        std::vector<std::unique_ptr<Unit>> memory;
        for (auto track : {AUDIO, TIMECODE}) {
            unsigned const handle = clip_get_track(clip, track), size = track_unit_size(handle);
            memory.push_back(std::make_unique<Unit>(TOGETHER * size, byte, 1));
            runs[track] = {handle, track_length_in_units(handle), TOGETHER, size, size, memory.back()->data()};
        }
        unsigned written[TRACKS] = {}, read[TRACKS] = {}, stride = 0;
        wchar_t const* messages[3] = {};
        void* buffer = nullptr;
        run(failing, [&] {
            messages[0] = clip_write_units(clip, runs, TRACKS, written);
            messages[1] = clip_read_units(clip, runs, TRACKS, read);
            buffer = unit_buffer_alloc(runs[AUDIO].track, TOGETHER, &stride);
            if (buffer == nullptr) return;
            messages[2] = track_read_units(runs[AUDIO].track, 0, TOGETHER, buffer, stride);
        });
        unit_buffer_free(buffer);
        for (auto const* message : messages)
            EXPECT_FINE(message);
        for (auto track : {AUDIO, TIMECODE}) {
            EXPECT_EQ(written[track], messages[0] == nullptr ? TOGETHER : 0u);
            EXPECT_EQ(read[track], messages[1] == nullptr ? TOGETHER : 0u);
            for (unsigned i = 0; i < written[track]; ++i)
                acknowledged[track].at(runs[track].first + i) = byte;
        }
        expectAcknowledged(clip);
        clip_close(clip);
        expectAllInTheFile();
    });
}

TEST_P(OutOfMemory, WhileMakingACheckpoint) {
    walk([&](AllocationWalk& failing) {
        unsigned clip = 0;
        ASSERT_OK(clip_open_rw(name.c_str(), &clip));
        auto const byte = static_cast<std::uint8_t>(failing.allocation());
        unsigned const unit = RECORDED + static_cast<unsigned>(failing.allocation());
        write(clip, AUDIO, unit, byte);
        wchar_t const* message = nullptr;
        run(failing, [&] { message = clip_checkpoint(clip); });
        EXPECT_FINE(message);
        write(clip, TIMECODE, unit, byte);
        EXPECT_OK(clip_checkpoint(clip));
        expectAcknowledged(clip);
        clip_close(clip);
        expectAllInTheFile();
    });
}

TEST_P(OutOfMemory, WhileClosing) {
    walk([&](AllocationWalk& failing) {
        unsigned clip = 0;
        ASSERT_OK(clip_open_rw(name.c_str(), &clip));
        for (auto track : {AUDIO, TIMECODE})
            write(clip, track, RECORDED + static_cast<unsigned>(failing.allocation()),
                  static_cast<std::uint8_t>(failing.allocation()));
        run(failing, [&] { clip_close(clip); });
        EXPECT_EQ(clip_track_count(clip), 0u);
        expectAllInTheFile();
    });
}

TEST_P(OutOfMemory, WhileClosingWithAnAnswer) {
    walk([&](AllocationWalk& failing) {
        unsigned clip = 0;
        ASSERT_OK(clip_open_rw(name.c_str(), &clip));
        for (auto track : {AUDIO, TIMECODE})
            write(clip, track, RECORDED + static_cast<unsigned>(failing.allocation()),
                  static_cast<std::uint8_t>(failing.allocation()));
        wchar_t const* message = nullptr;
        run(failing, [&] { message = clip_close_checked(clip); });
        EXPECT_FINE(message);
        EXPECT_EQ(clip_track_count(clip), 0u) << "closed all the same";
        expectAllInTheFile();
    });
}

TEST_P(OutOfMemory, WhileChangingTheHeader) {
    ScratchPath const quick_folder(inMemory());
    std::wstring const changed = quick_folder.name("changed.clip");
    unsigned const clip = create(changed);
    ASSERT_OK(clip_set_text(clip, ClipText::title, L"before"));
    unsigned round = 0;
    walk([&](AllocationWalk& failing) {
        std::wstring const title = L"title " + std::to_wstring(++round);
        wchar_t const* message = nullptr;
        run(failing, [&] { message = clip_set_text(clip, ClipText::title, title.c_str()); });
        EXPECT_FINE(message);
        wchar_t told[32] = L"";
        clip_get_text(clip, ClipText::title, told, 32);
        EXPECT_EQ(told == title, message == nullptr);
        ASSERT_OK(clip_set_text(clip, ClipText::title, title.c_str())) << "and it can be repeated";
    });
    walk([&](AllocationWalk& failing) {
        wchar_t told[32] = L"x", file[256] = L"x", message[256] = L"x";
        unsigned lengths[3] = {};
        run(failing, [&] {
            lengths[0] = clip_get_text(clip, ClipText::title, told, 32);
            lengths[1] = clip_get_text(clip, ClipText::file_name, file, 256);
            lengths[2] = message_with_file(L"Write failed", clip, message, 256);
        });
        EXPECT_EQ(std::wstring(told).size(), lengths[0]);
        EXPECT_TRUE(lengths[1] == 0 || file == changed);
        EXPECT_TRUE(lengths[2] == 0 || message == changed + L": Write failed");
    });
    clip_close(clip);
}

TEST_P(OutOfMemory, WhileCancellingACreation) {
    std::wstring const created = folder.name("created.clip");
    test::AllocationWalk failing(GetParam());
    unsigned cancelled = 0;
    while (failing.next() && !HasFailure()) {
        unsigned creation = 0;
        ASSERT_OK(create_begin(created.c_str(), STANDARD, &creation));
        wchar_t const* message = nullptr;
        run(failing, [&] { message = create_cancel(creation); });
        EXPECT_FINE(message);
        if (message != nullptr) {
            ASSERT_OK(create_cancel(creation));
        }
        ++cancelled;
    }
    EXPECT_GT(cancelled, 0u);
}

TEST_P(OutOfMemory, WhileCreating) {
    ScratchPath const quick_folder(inMemory());
    std::wstring const created = quick_folder.name("created.clip");
    walk([&](AllocationWalk& failing) {
        unsigned creation = 0, clip = 0, done = 0;
        wchar_t const* message = nullptr;
        run(failing, [&] { message = create(created, creation, clip, done); });
        EXPECT_FINE(message);
        EXPECT_EQ(clip != 0, message == nullptr);
        // Only the calls that failed are repeated.
        ASSERT_OK(create(created, creation, clip, done));

        ASSERT_EQ(clip_track_count(clip), TRACKS);
        EXPECT_EQ(clip_get_video_standard(clip), STANDARD);
        unsigned const timecode = clip_get_track(clip, TIMECODE), size = track_unit_size(timecode);
        Unit unit(size, 7);
        EXPECT_OK(track_write(timecode, 0, unit.data(), size));
        clip_close(clip);
        ASSERT_OK(clip_open(created.c_str(), &clip));
        ASSERT_EQ(clip_track_count(clip), TRACKS);
        Unit read(size, 0);
        EXPECT_OK(track_read(clip_get_track(clip, TIMECODE), 0, read.data()));
        EXPECT_TRUE(read.holds(7));
        clip_close(clip);
        std::filesystem::remove(created);
    });
}

// Samples that count up, in portions of one unit.
class OutOfMemoryWithSound : public OutOfMemory {
  protected:
    void SetUp() override {
        // The threads of the task pool keep their rings for as long as they live.
        test::ioEngines().back().use();
        for (auto& samples : sound)
            pointers.push_back(samples.data());
        unsigned const clip = create(name);
        unsigned writer = 0;
        ASSERT_OK(seqwrite_begin(clip_get_track(clip, AUDIO), &writer));
        for (unsigned unit = 0; unit < RECORDED; ++unit) {
            fillPortion(unit);
            ASSERT_OK(seqwrite_write(writer, pointers.data(), UNIT_SAMPLES));
        }
        ASSERT_OK(seqwrite_finish(writer));
        clip_close(clip);
    }

    // Lists that threads share keep their largest capacity.
    static constexpr std::int64_t KEPT_BY_LISTS = 2;

    static std::int32_t sampleAt(unsigned subchannel, unsigned unit, unsigned index) {
        return static_cast<std::int32_t>((unit * UNIT_SAMPLES + index + 1) * 1000 + subchannel);
    }
    void fillPortion(unsigned unit) {
        for (unsigned subchannel = 0; subchannel < SUBCHANNELS; ++subchannel)
            for (unsigned index = 0; index < UNIT_SAMPLES; ++index)
                sound[subchannel][index] = sampleAt(subchannel, unit, index);
    }
    // Recordings are faded at their beginning.
    void expectPortion(unsigned unit) {
        constexpr unsigned FADED = 100;
        for (unsigned subchannel = 0; subchannel < SUBCHANNELS; ++subchannel)
            for (unsigned index = unit == 0 ? FADED : 0; index < UNIT_SAMPLES; ++index)
                ASSERT_EQ(sound[subchannel][index], sampleAt(subchannel, unit, index)) << unit << ", " << index;
    }

    std::vector<std::vector<std::int32_t>> sound{SUBCHANNELS, std::vector<std::int32_t>(UNIT_SAMPLES)};
    std::vector<std::int32_t*> pointers;
};

TEST_P(OutOfMemoryWithSound, WhileReading) {
    unsigned clip = 0;
    ASSERT_OK(clip_open(name.c_str(), &clip));
    unsigned const audio = clip_get_track(clip, AUDIO);
    walk(
        [&](AllocationWalk& failing) {
            unsigned reader = 0, units_read = 0;
            wchar_t const* message = nullptr;
            run(failing, [&] {
                message = seqread_begin(audio, &reader);
                while (message == nullptr && units_read < RECORDED) {
                    message = seqread_read(reader, pointers.data(), UNIT_SAMPLES);
                    if (message == nullptr) ++units_read;
                }
            });
            EXPECT_FINE(message);
            if (reader == 0) {
                ASSERT_OK(seqread_begin(audio, &reader));
            }
            for (; units_read < RECORDED; ++units_read) {
                ASSERT_OK(seqread_read(reader, pointers.data(), UNIT_SAMPLES));
                expectPortion(units_read);
            }
            EXPECT_EQ(seqread_samples_remaining(reader), 0u);
            seqread_finish(reader);
        },
        KEPT_BY_LISTS);
    clip_close(clip);
}

TEST_P(OutOfMemoryWithSound, WhileSeeking) {
    constexpr unsigned SOUGHT[] = {9, 2, 0};
    unsigned clip = 0;
    ASSERT_OK(clip_open(name.c_str(), &clip));
    unsigned const audio = clip_get_track(clip, AUDIO);
    walk(
        [&](AllocationWalk& failing) {
            unsigned reader = 0;
            ASSERT_OK(seqread_begin(audio, &reader));
            ASSERT_OK(seqread_read(reader, pointers.data(), UNIT_SAMPLES));
            bool wrong = false;
            run(failing, [&] {
                for (unsigned const unit : SOUGHT) {
                    std::uint64_t const before = seqread_position(reader);
                    wchar_t const* message = seqread_seek(reader, unit * UNIT_SAMPLES);
                    wrong |= message != nullptr && message != OUT_OF_MEMORY;
                    // A seek that fails moves nothing.
                    wrong |= seqread_position(reader) != (message == nullptr ? unit * UNIT_SAMPLES : before);
                    if (message != nullptr) continue;
                    message = seqread_read(reader, pointers.data(), UNIT_SAMPLES);
                    wrong |= message != nullptr && message != OUT_OF_MEMORY;
                    wrong |= message == nullptr && sound[1][UNIT_SAMPLES - 1] != sampleAt(1, unit, UNIT_SAMPLES - 1);
                }
            });
            EXPECT_FALSE(wrong);
            for (unsigned const unit : SOUGHT) {
                ASSERT_OK(seqread_seek(reader, unit * UNIT_SAMPLES));
                ASSERT_OK(seqread_read(reader, pointers.data(), UNIT_SAMPLES));
                expectPortion(unit);
            }
            seqread_finish(reader);
        },
        KEPT_BY_LISTS);
    clip_close(clip);
}

// What the C interface adds is text: every message, text and label passes through it.
TEST_P(OutOfMemory, WhileCallingFromC) {
    constexpr auto FREQUENCY = static_cast<std::uint32_t>(VideoFrequency::f25);
    auto const utf8 = std::filesystem::path(name).u8string();
    std::string const utf8_name(utf8.begin(), utf8.end());
    kclip_clip_set_text(0, KCLIP_TITLE, "t");  // the text of its message is kept from now on
    walk([&](AllocationWalk& failing) {
        std::uint32_t clip = 0, length = 0, kind = 0, label_length = 0;
        char const *opened = nullptr, *refused = nullptr, *standard = nullptr;
        char file[256] = "x", label[32] = "x";
        kclip_timecode timecode{};
        bool defined = false;
        run(failing, [&] {
            opened = kclip_clip_open(utf8_name.c_str(), &clip);
            length = kclip_clip_get_text(clip, KCLIP_FILE_NAME, file, sizeof file);
            refused = kclip_clip_set_text(clip, KCLIP_TITLE, "t");
            kind = kclip_message_kind(refused);
            standard = kclip_standard_to_text(static_cast<std::uint32_t>(STANDARD));
            defined = kclip_timecode_from_text(FREQUENCY, KCLIP_NDF, "1.2.3", &timecode);
            label_length = kclip_timecode_to_text(&timecode, 4, label, sizeof label);
        });
        auto const fine = [](char const* message) { return std::string_view(message) == "Out of memory"; };
        EXPECT_EQ(clip != 0, opened == nullptr);
        EXPECT_TRUE(opened == nullptr || fine(opened)) << opened;
        EXPECT_EQ(std::strlen(file), length);
        EXPECT_TRUE(length == 0 || file == utf8_name);
        ASSERT_NE(refused, nullptr);
        std::string_view const expected =
            opened == nullptr ? "Clip was opened in read-only mode" : "invalid clip handle";
        EXPECT_TRUE(fine(refused) || refused == expected) << refused;
        EXPECT_TRUE(kind == kclip_message_kind(refused) || kind == static_cast<std::uint32_t>(MessageKind::other));
        EXPECT_TRUE(!fine(refused) || kind == static_cast<std::uint32_t>(MessageKind::out_of_memory));
        EXPECT_TRUE(standard == nullptr || std::string_view(standard) == "1080i 50Hz");
        EXPECT_EQ(timecode.frequency != 0, defined);
        EXPECT_EQ(std::strlen(label), label_length);
        kclip_clip_close(clip);
    });
}

TEST_P(OutOfMemoryWithSound, WhileFinishingAReader) {
    unsigned clip = 0;
    ASSERT_OK(clip_open(name.c_str(), &clip));
    for (unsigned units_read : {0u, 1u, RECORDED}) {
        unsigned reader = 0;
        auto const round = [&] {
            ASSERT_OK(seqread_begin(clip_get_track(clip, AUDIO), &reader));
            for (unsigned unit = 0; unit < units_read; ++unit)
                ASSERT_OK(seqread_read(reader, pointers.data(), UNIT_SAMPLES));
            {
                test::NothingRecycled const nothing_recycled;
                Memory::failFrom(1, GetParam());
                seqread_finish(reader);
                Memory::recover();
            }
            EXPECT_EQ(seqread_subchannel_count(reader), 0u);
            hemlock::UnitReadAhead::waitForTasks(60000);
        };
        round();
        std::int64_t const before = Memory::allocated();
        round();
        EXPECT_LE(Memory::allocated(), before + KEPT_BY_LISTS);
    }
    clip_close(clip);
}

TEST_P(OutOfMemoryWithSound, WhileWriting) {
    std::wstring const copy = folder.name("copy.clip");
    walk(
        [&](AllocationWalk& failing) {
            unsigned clip = create(copy);
            unsigned const audio = clip_get_track(clip, AUDIO);
            unsigned writer = 0, units_written = 0;
            wchar_t const* message = nullptr;
            bool finished = false;
            run(failing, [&] {
                message = seqwrite_begin(audio, &writer);
                while (message == nullptr && units_written < RECORDED) {
                    fillPortion(units_written);
                    message = seqwrite_write(writer, pointers.data(), UNIT_SAMPLES);
                    if (message == nullptr) ++units_written;
                }
                if (message != nullptr) return;
                message = seqwrite_finish(writer);
                finished = message == nullptr;
            });
            EXPECT_FINE(message);
            if (writer == 0) {
                ASSERT_OK(seqwrite_begin(audio, &writer));
            }
            for (; units_written < RECORDED; ++units_written) {
                fillPortion(units_written);
                ASSERT_OK(seqwrite_write(writer, pointers.data(), UNIT_SAMPLES));
            }
            if (!finished) {
                ASSERT_OK(seqwrite_finish(writer));
            }
            clip_close(clip);

            ASSERT_OK(clip_open(copy.c_str(), &clip));
            unsigned const written = clip_get_track(clip, AUDIO);
            EXPECT_EQ(track_length_in_units(written), RECORDED);
            unsigned reader = 0;
            ASSERT_OK(seqread_begin(written, &reader));
            for (unsigned unit = 0; unit < RECORDED; ++unit) {
                ASSERT_OK(seqread_read(reader, pointers.data(), UNIT_SAMPLES));
                expectPortion(unit);
            }
            seqread_finish(reader);
            clip_close(clip);
            std::filesystem::remove(copy);
        },
        KEPT_BY_LISTS);
}

// More than the writer's queues have room for at first. After a message the samples end somewhere, but none is missing
// before their end.
TEST_P(OutOfMemoryWithSound, WhileWritingManyUnitsAtOnce) {
    constexpr unsigned UNITS = 300000 / UNIT_SAMPLES;
    constexpr std::int32_t LEVEL = 5;
    std::vector<std::int32_t> const samples(UNITS * UNIT_SAMPLES, LEVEL);
    std::vector<std::int32_t const*> const all(SUBCHANNELS, samples.data());
    std::wstring const copy = folder.name("copy.clip");
    walk(
        [&](AllocationWalk& failing) {
            unsigned clip = create(copy), writer = 0, reader = 0;
            unsigned const audio = clip_get_track(clip, AUDIO);
            ASSERT_OK(seqwrite_begin(audio, &writer));
            wchar_t const* message = nullptr;
            run(failing, [&] { message = seqwrite_write(writer, all.data(), UNITS * UNIT_SAMPLES); });
            EXPECT_FINE(message);
            ASSERT_OK(seqwrite_finish(writer));
            unsigned const length = track_length_in_units(audio);
            if (message == nullptr) {
                EXPECT_EQ(length, UNITS);
            }
            EXPECT_LE(length, UNITS);
            ASSERT_OK(seqread_begin(audio, &reader));
            for (unsigned unit = 0; unit < length; ++unit) {
                ASSERT_OK(seqread_read(reader, pointers.data(), UNIT_SAMPLES));
                if (unit == 0 || unit + 1 == length) continue;  // faded
                for (auto const& subchannel : sound)
                    EXPECT_EQ(std::count(subchannel.begin(), subchannel.end(), LEVEL), UNIT_SAMPLES) << unit;
            }
            seqread_finish(reader);
            clip_close(clip);
            std::filesystem::remove(copy);
        },
        KEPT_BY_LISTS);
}

TEST_P(OutOfMemory, WhileAskingForTexts) {
    KTimecode const timecode(VideoFrequency::f25, 123456789);
    std::wstring const text = timecode.toString(5);
    walk([&](AllocationWalk& failing) {
        wchar_t const *standard = nullptr, *frequency = nullptr;
        VideoStandard parsed = VideoStandard::none;
        std::wstring label;
        wchar_t const *format = nullptr, *version = nullptr, *category = nullptr;
        FormatInfo info{};
        bool described = false;
        run(failing, [&] {
            format = format_name(STANDARD, 0);
            described = format_info(STANDARD, L"auk14", &info);
            version = library_version_text();
            category = toString(TrackCategory::timecode);
            standard = toString(STANDARD);
            frequency = toString(VideoFrequency::f23_98);
            parsed = toVideoStandard(L"1080i 50Hz");
            label = timecode.toString(5);
        });
        EXPECT_TRUE(format == nullptr || said(format) == L"avci50-1080i");
        EXPECT_EQ(info.unit_size, described ? 14u * 4096 : 0u);
        EXPECT_TRUE(version == nullptr || version == library_version_text());
        EXPECT_TRUE(category == nullptr || said(category) == L"timecode");
        EXPECT_TRUE(standard == nullptr || said(standard) == L"1080i 50Hz");
        EXPECT_TRUE(frequency == nullptr || said(frequency) == L"23.98Hz");
        EXPECT_TRUE(parsed == VideoStandard::none || parsed == STANDARD);
        EXPECT_TRUE(label.empty() || label == text);
    });
}

// The first task of a process starts the pool. The case runs in processes of its own; the argument says what fails.
constexpr int NOTHING_FAILED = 2;

TEST(TaskPoolChild, DISABLED_TakesTasksWhenMemoryIsBack) {
    unsigned long allocation = 0, failures = 0;
    std::wistringstream(test::childArgument()) >> allocation >> failures;
    KSemaphore done(0);
    bool taken = true;
    Memory::failFrom(allocation, static_cast<Failures>(failures));
    try {
        platform::runInBackground([&done] { done.post(); });
    } catch (std::exception const&) {
        taken = false;
    }
    bool const has_failed = Memory::recover();
    if (taken) done.wait();

    platform::runInBackground([&done] { done.post(); });
    done.wait();
    if (!has_failed) std::_Exit(NOTHING_FAILED);
}

TEST_P(OutOfMemory, WhileStartingTheTaskPool) {
    int code = test::CHILD_PASSED;
    for (unsigned allocation = 1; code == test::CHILD_PASSED; ++allocation)
        code = test::runChild("TaskPoolChild.DISABLED_TakesTasksWhenMemoryIsBack",
                              std::to_wstring(allocation) + L" " + std::to_wstring(static_cast<int>(GetParam())));
    EXPECT_EQ(code, NOTHING_FAILED);
}

INSTANTIATE_TEST_SUITE_P(Each, OutOfMemory, test::bothFailures(), test::nameOf);
INSTANTIATE_TEST_SUITE_P(Each, OutOfMemoryWithSound, test::bothFailures(), test::nameOf);

}  // namespace
}  // namespace KelvonClip
