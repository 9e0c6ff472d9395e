// The DLL in a process: loading and unloading, threads that start and end, and the resources that it uses.

#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <kelvonclip/seq_read.h>
#include <kelvonclip/seq_write.h>

#include "public/public_support.h"
#include "support/clip_image.h"
#include "support/scratch_path.h"
#include "support/windows/heap_blocks.h"
#include "support/windows/open_handles.h"
#include "support/windows/windows_rules.h"

namespace KelvonClip {
namespace {

using namespace test;

constexpr unsigned int UNIT = 8192;  // two subchannels at 50Hz
constexpr NewClip AUDIO_CLIP{VideoStandard::s1080i_50, 0, 0, 1, 2, false};

// The test program is linked with the DLL, so it loads a copy of the file.
class LoadedCopy {
  public:
    explicit LoadedCopy(std::filesystem::path const& folder) : file(folder / L"copy.dll") {
        std::wstring original(32768, L'\0');
        original.resize(GetModuleFileNameW(GetModuleHandleW(L"kelvonclip.dll"), original.data(),
                                           static_cast<DWORD>(original.size())));
        CopyFileW(original.c_str(), file.c_str(), FALSE);
        module = LoadLibraryW(file.c_str());
        if (module == nullptr) throw std::runtime_error("the copy does not load");
        applyWindowsRules(module);
    }
    template <class Function>
    Function* find(Function*, char const* name) const {
        auto const found = GetProcAddress(module, name);
        if (found == nullptr) throw std::runtime_error(name);
        return reinterpret_cast<Function*>(reinterpret_cast<void*>(found));
    }
    // A background task that is running keeps the library until it has ended.
    void unload() const {
        EXPECT_TRUE(FreeLibrary(module));
        while (GetModuleHandleW(file.c_str()) != nullptr)
            Sleep(1);
    }

  private:
    std::filesystem::path const file;
    HMODULE module;
};

void expectUnits(std::wstring const& name, unsigned int units, std::string const& expected) {
    unsigned int clip = 0;
    ASSERT_OK(clip_open(name.c_str(), &clip));
    unsigned int const track = clip_get_track(clip, 0);
    ASSERT_EQ(track_length_in_units(track), units);
    std::string back(UNIT, '\0');
    for (unsigned int unit = 0; unit < units; ++unit) {
        ASSERT_OK(track_read(track, unit, back.data()));
        EXPECT_EQ(back, expected);
    }
    clip_close(clip);
}

TEST(LoadedLibrary, UnloadingWritesClipsBackThatAreOpen) {
    ScratchPath folder;
    auto const name = folder.name("clip");
    clip_close(createClip(name, AUDIO_CLIP));
    std::string const unit = patternBytes(UNIT, 5);
    for (unsigned int round = 0; round < 3; ++round) {
        LoadedCopy const library(folder.path);
        unsigned int clip = 0;
        ASSERT_OK(library.find(&clip_open_rw, "_ZN10KelvonClip12clip_open_rwEPKwPj")(name.c_str(), &clip));
        EXPECT_EQ(clip, 1u) << "a library of its own";
        unsigned int const track = library.find(&clip_get_track, "_ZN10KelvonClip14clip_get_trackEjj")(clip, 0);
        EXPECT_EQ(library.find(&track_length_in_units, "_ZN10KelvonClip21track_length_in_unitsEj")(track), round);
        ASSERT_OK(library.find(&track_write, "_ZN10KelvonClip11track_writeEjjPKvj")(track, round, unit.data(), UNIT));
        library.unload();
    }
    expectUnits(name, 3, unit);
}

TEST(LoadedLibrary, UnloadingWhileAudioIsReadAheadWaitsForIt) {
    ScratchPath folder;
    auto const name = folder.name("clip");
    unsigned int const made = createClip(name, AUDIO_CLIP);
    std::string const unit(UNIT, '\0');
    for (unsigned int n = 0; n < 50; ++n)
        ASSERT_OK(track_write(clip_get_track(made, 0), n, unit.data(), UNIT));
    clip_close(made);
    for (int round = 0; round < 5; ++round) {
        LoadedCopy const library(folder.path);
        unsigned int clip = 0, reader = 0;
        ASSERT_OK(library.find(&clip_open, "_ZN10KelvonClip9clip_openEPKwPj")(name.c_str(), &clip));
        auto* const get_track = library.find(&clip_get_track, "_ZN10KelvonClip14clip_get_trackEjj");
        using Begin = wchar_t const*(unsigned int, unsigned int*);
        using Read = wchar_t const*(unsigned int, std::int32_t* const*, unsigned int);
        ASSERT_OK(library.find<Begin>(nullptr, "_ZN10KelvonClip13seqread_beginEjPj")(get_track(clip, 0), &reader));
        std::vector<std::int32_t> first(100), second(100);
        std::int32_t* const buffers[] = {first.data(), second.data()};
        ASSERT_OK(library.find<Read>(nullptr, "_ZN10KelvonClip12seqread_readEjPKPij")(reader, buffers, 100));
        library.unload();
    }
}

TEST(LoadedLibrary, ThreadsThatUsedItMayEndAfterItIsUnloaded) {
    ScratchPath folder;
    auto const name = folder.name("clip");
    clip_close(createClip(name, AUDIO_CLIP));
    for (int round = 0; round < 5; ++round) {
        LoadedCopy const library(folder.path);
        HANDLE const used = CreateEventW(nullptr, TRUE, FALSE, nullptr);
        HANDLE const unloaded = CreateEventW(nullptr, TRUE, FALSE, nullptr);
        std::thread user([&] {
            unsigned int clip = 0;
            EXPECT_OK(library.find(&clip_open, "_ZN10KelvonClip9clip_openEPKwPj")(name.c_str(), &clip));
            library.find(&clip_get_track, "_ZN10KelvonClip14clip_get_trackEjj")(clip, 0);
            SetEvent(used);
            WaitForSingleObject(unloaded, INFINITE);
        });
        WaitForSingleObject(used, INFINITE);
        library.unload();
        SetEvent(unloaded);
        user.join();
        CloseHandle(used);
        CloseHandle(unloaded);
    }
}

void useClip(std::wstring const& name, std::string const& expected) {
    unsigned int clip = 0;
    ASSERT_OK(clip_open(name.c_str(), &clip));
    std::string back(UNIT, '\0');
    ASSERT_OK(track_read(clip_get_track(clip, 0), 0, back.data()));
    EXPECT_EQ(back, expected);
    clip_close(clip);
}

TEST(LibraryResources, AHundredThreadsThatOpenAndCloseLeaveNoHandleBehind) {
    ScratchPath folder;
    std::string const unit = patternBytes(UNIT, 9);
    std::vector<std::wstring> names;
    for (int n = 0; n < 4; ++n) {
        names.push_back(folder.name(std::to_string(n).c_str()));
        unsigned int const clip = createClip(names.back(), AUDIO_CLIP);
        ASSERT_OK(track_write(clip_get_track(clip, 0), 0, unit.data(), UNIT));
        clip_close(clip);
    }
    auto const hundredThreads = [&] {
        std::vector<std::jthread> threads;
        for (unsigned int n = 0; n < 100; ++n)
            threads.emplace_back([&, n] {
                for (unsigned int round = 0; round < 3; ++round)
                    useClip(names[(n + round) % names.size()], unit);
            });
    };
    hundredThreads();  // what is made once, on first use, is there now
    std::size_t const before = openHandles();
    hundredThreads();
    // The C++ library keeps a few handles of ended threads for reuse; a leak for each clip would be hundreds.
    EXPECT_LE(openHandles(), before + 20);
}

TEST(LibraryResources, ClipsLeaveNoHandleBehind) {
    ScratchPath folder;
    auto const name = folder.name("clip");
    std::string const unit = patternBytes(UNIT, 2);
    unsigned int const made = createClip(name, AUDIO_CLIP);
    ASSERT_OK(track_write(clip_get_track(made, 0), 0, unit.data(), UNIT));
    clip_close(made);
    auto const round = [&](int number) {
        useClip(name, unit);
        unsigned int clip = 0;
        EXPECT_NE(clip_open(L"no such folder\\clip", &clip), nullptr);
        clip_close(createClip(folder.name(("new" + std::to_string(number)).c_str()), AUDIO_CLIP));
    };
    round(0);
    std::size_t const before = openHandles();
    for (int number = 1; number <= 30; ++number)
        round(number);
    EXPECT_EQ(openHandles(), before);
}

// Records and plays `units` units of both subchannels.
void useAudio(std::wstring const& name, unsigned int units) {
    constexpr unsigned int SAMPLES = 960;
    std::vector<std::int32_t> left(SAMPLES, 1 << 20), right(SAMPLES, -(1 << 20));
    unsigned int const made = createClip(name, AUDIO_CLIP);
    unsigned int writer = 0, reader = 0;
    ASSERT_OK(seqwrite_begin(clip_get_track(made, 0), &writer));
    std::int32_t const* const from[] = {left.data(), right.data()};
    for (unsigned int unit = 0; unit < units; ++unit)
        ASSERT_OK(seqwrite_write(writer, from, SAMPLES));
    ASSERT_OK(seqwrite_finish(writer));
    ASSERT_OK(seqread_begin(clip_get_track(made, 0), &reader));
    std::int32_t* const to[] = {left.data(), right.data()};
    for (unsigned int unit = 0; unit < units; ++unit)
        ASSERT_OK(seqread_read(reader, to, SAMPLES));
    seqread_finish(reader);
    clip_close(made);
}

// What is held is counted once everything that is made on first use is there, and again after many more rounds.
template <class Round>
void expectNothingLeftBehind(int rounds, Round&& round) {
    constexpr int FIRST_ROUNDS = 20;
    for (int number = 0; number < FIRST_ROUNDS; ++number)
        round();
    std::size_t const handles = openHandles(), blocks = heapBlockCount();
    for (int number = 0; number < rounds; ++number)
        round();
    // The task pool and the C++ library may start and end a thread meanwhile.
    constexpr std::size_t THREADS_OF_OTHERS = 10;
    EXPECT_LE(openHandles(), handles + THREADS_OF_OTHERS);
    EXPECT_LE(heapBlockCount(), blocks + THREADS_OF_OTHERS);
}

TEST(LibraryResources, ReadingClipsLeavesNoHandleAndNoMemoryBehind) {
    ScratchPath folder;
    auto const name = folder.name("clip");
    std::string const unit = patternBytes(UNIT, 2);
    unsigned int const made = createClip(name, AUDIO_CLIP);
    ASSERT_OK(track_write(clip_get_track(made, 0), 0, unit.data(), UNIT));
    clip_close(made);
    expectNothingLeftBehind(1000, [&] { useClip(name, unit); });
}

TEST(LibraryResources, RecordingAndPlayingAudioLeavesNoHandleAndNoMemoryBehind) {
    ScratchPath folder;
    auto const name = folder.name("clip");
    expectNothingLeftBehind(100, [&] { useAudio(name, 40); });
}

TEST(PublicNames, ClipsMayHaveNamesOutsideTheBasicPlane) {
    ScratchPath folder;
    std::wstring const name = folder.path.wstring() + L"\\\U0001F3AC \u4e2d\u03a9.clip";
    std::string const unit = patternBytes(UNIT, 1);
    unsigned int const clip = createClip(name, AUDIO_CLIP);
    ASSERT_OK(track_write(clip_get_track(clip, 0), 0, unit.data(), UNIT));
    clip_close(clip);
    EXPECT_TRUE(std::filesystem::exists(name));
    expectUnits(name, 1, unit);
}

TEST(PublicNames, ClipsMayHaveNamesLongerThan260CharactersWithTheLongNamePrefix) {
    ScratchPath folder;
    std::wstring path = L"\\\\?\\" + folder.path.wstring();
    std::vector<std::wstring> made;
    while (path.size() < 300) {
        path += L"\\" + std::wstring(60, L'd');
        ASSERT_TRUE(CreateDirectoryW(path.c_str(), nullptr)) << GetLastError();
        made.push_back(path);
    }
    path += L"\\clip";
    std::string const unit = patternBytes(UNIT, 4);
    unsigned int const clip = createClip(path, AUDIO_CLIP);
    ASSERT_OK(track_write(clip_get_track(clip, 0), 0, unit.data(), UNIT));
    clip_close(clip);
    expectUnits(path, 1, unit);

    EXPECT_TRUE(DeleteFileW(path.c_str()));
    for (auto nested = made.rbegin(); nested != made.rend(); ++nested)
        EXPECT_TRUE(RemoveDirectoryW(nested->c_str()));
}

}  // namespace
}  // namespace KelvonClip
