// Opening and closing a clip, compared with opening the file, reading its first 32768 bytes and closing it.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <kelvonclip/kelvonclip.h>
#include <unistd.h>

#include <filesystem>
#include <new>

namespace {

using namespace KelvonClip;

constexpr wchar_t CLIP[] = L"bench-open.clip";
constexpr char CLIP_BYTES[] = "bench-open.clip";

void makeClip() {
    std::filesystem::remove(CLIP);
    unsigned creation = 0, clip = 0;
    create_begin(CLIP, toVideoStandard(L"1080i 50Hz"), &creation);
    cfg_track_count_video(creation, 1);
    cfg_track_count_audio(creation, 2);
    cfg_video_avci(creation);
    cfg_audio_hemlock(creation, 8);
    cfg_track_timecode(creation);
    create_finish(creation, &clip);
    clip_close(clip);
}

void openLibrary(benchmark::State& state, bool with_tracks) {
    makeClip();
    for (auto _ : state) {
        unsigned clip = 0;
        if (clip_open(CLIP, &clip) != nullptr) state.SkipWithError("open failed");
        if (with_tracks) benchmark::DoNotOptimize(clip_track_count(clip));
        clip_close(clip);
    }
    std::filesystem::remove(CLIP);
}

void openRaw(benchmark::State& state) {
    makeClip();
    void* const header = ::operator new (32768, std::align_val_t{4096});
    for (auto _ : state) {
        int const descriptor = ::open(CLIP_BYTES, O_RDONLY | O_DIRECT | O_CLOEXEC);
        if (::pread(descriptor, header, 32768, 0) != 32768) state.SkipWithError("read failed");
        ::close(descriptor);
    }
    ::operator delete (header, std::align_val_t{4096});
    std::filesystem::remove(CLIP);
}

}  // namespace

BENCHMARK_CAPTURE(openLibrary, header, false)->Name("open_close/library")->UseRealTime();
BENCHMARK_CAPTURE(openLibrary, tracks, true)->Name("open_tracks_close/library")->UseRealTime();
BENCHMARK(openRaw)->Name("open_close/pread")->UseRealTime();
