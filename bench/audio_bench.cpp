// Sequential audio compared with memcpy, with the disk's own throughput, and with libsndfile (RF64 and W64, 32-bit PCM,
// de-interleaved into the same buffers): ten minutes of sixteen subchannels, in calls of 1920 and of 64 samples, on the
// same file system in the same run. Works in the current folder. libsndfile reads its files from the page cache; dirty
// pages are written back before each read test.
//
// The environment variable KELVONCLIP_BENCH_AUDIO_MINUTES sets another duration.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <kelvonclip/kelvon_clip.h>
#include <kelvonclip/seq_read.h>
#include <kelvonclip/seq_write.h>
#include <sndfile.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <filesystem>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "platform/transfer_memory.h"

namespace {

std::atomic<std::uint64_t> allocations = 0;

void* counted(std::size_t size, std::size_t alignment) {
    allocations.fetch_add(1, std::memory_order_relaxed);
    void* memory = nullptr;
    if (::posix_memalign(&memory, std::max(alignment, sizeof(void*)), std::max<std::size_t>(size, 1)) != 0)
        throw std::bad_alloc();
    return memory;
}

}  // namespace

void* operator new(std::size_t size) { return counted(size, alignof(std::max_align_t)); }
void* operator new(std::size_t size, std::align_val_t alignment) {
    return counted(size, static_cast<std::size_t>(alignment));
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete(void* memory, std::align_val_t) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept { std::free(memory); }

namespace {

using namespace KelvonClip;

constexpr unsigned SUBCHANNELS = 16;
constexpr unsigned RATE = 48000;
constexpr unsigned LONGEST_CALL = 1920;
constexpr wchar_t CLIP[] = L"bench-audio.clip";

// A multiple of the block's samples, so that the recording ends at the end of a unit.
std::uint64_t samplesInAll() {
    static std::uint64_t const samples = [] {
        char const* minutes = std::getenv("KELVONCLIP_BENCH_AUDIO_MINUTES");
        return static_cast<std::uint64_t>(60 * RATE * (minutes != nullptr ? std::atof(minutes) : 10)) / LONGEST_CALL *
               LONGEST_CALL;
    }();
    return samples;
}

// One buffer for each subchannel, and interleaved frames of one call for libsndfile.
struct Buffers {
    Buffers() : streams(SUBCHANNELS, std::vector<std::int32_t>(LONGEST_CALL)), interleaved(LONGEST_CALL * SUBCHANNELS) {
        for (unsigned s = 0; s < SUBCHANNELS; ++s) {
            pointers.push_back(streams[s].data());
            for (unsigned i = 0; i < LONGEST_CALL; ++i)
                streams[s][i] = static_cast<std::int32_t>((i * 2654435761u) ^ (s << 20));
        }
    }
    std::vector<std::vector<std::int32_t>> streams;
    std::vector<std::int32_t*> pointers;
    std::vector<std::int32_t> interleaved;
};

void settle() { ::sync(); }

void report(benchmark::State& state, std::uint64_t calls, std::uint64_t allocated) {
    auto const all = static_cast<std::int64_t>(samplesInAll() * SUBCHANNELS * sizeof(std::int32_t));
    state.SetBytesProcessed(state.iterations() * all);
    if (calls > 0) state.counters["allocations/call"] = static_cast<double>(allocated) / static_cast<double>(calls);
}

bool check(benchmark::State& state, wchar_t const* message) {
    if (message == nullptr) return true;
    state.SkipWithError(std::string(message, message + std::wcslen(message)).c_str());
    return false;
}

struct Clip {
    ~Clip() {
        clip_close(handle);
        std::filesystem::remove(CLIP);
    }
    bool create(benchmark::State& state) {
        std::filesystem::remove(CLIP);
        unsigned creation = 0;
        bool const made = check(state, create_begin(CLIP, toVideoStandard(L"1080p 25Hz"), &creation)) &&
                          check(state, cfg_track_count_audio(creation, 1)) &&
                          check(state, cfg_audio_hemlock(creation, SUBCHANNELS)) &&
                          check(state, create_finish(creation, &handle));
        track = clip_get_track(handle, 0);
        return made;
    }
    bool record(benchmark::State& state, Buffers const& buffers, unsigned call) const {
        unsigned writer = 0;
        if (!check(state, seqwrite_begin(track, &writer))) return false;
        for (std::uint64_t done = 0; done < samplesInAll(); done += call)
            if (!check(state, seqwrite_write(writer, buffers.pointers.data(), call))) return false;
        return check(state, seqwrite_finish(writer));
    }
    unsigned handle = 0, track = 0;
};

// The same number of bytes in the same portions, between buffers that stay in the cache: an upper bound.
void copying(benchmark::State& state) {
    auto const call = static_cast<unsigned>(state.range(0));
    Buffers from, to;
    for (auto _ : state) {
        for (std::uint64_t done = 0; done < samplesInAll(); done += call) {
            for (unsigned s = 0; s < SUBCHANNELS; ++s)
                std::memcpy(to.pointers[s], from.pointers[s], call * sizeof(std::int32_t));
            benchmark::ClobberMemory();
        }
    }
    report(state, 0, 0);
}

void libraryReads(benchmark::State& state) {
    auto const call = static_cast<unsigned>(state.range(0));
    Buffers buffers;
    Clip clip;
    if (!clip.create(state) || !clip.record(state, buffers, LONGEST_CALL)) return;
    settle();
    std::uint64_t calls = 0, allocated = 0;
    for (auto _ : state) {
        unsigned reader = 0;
        if (!check(state, seqread_begin(clip.track, &reader))) break;
        std::uint64_t warm = 0;
        for (std::uint64_t done = 0; done < samplesInAll(); done += call) {
            if (done == std::uint64_t{RATE / LONGEST_CALL * LONGEST_CALL}) warm = allocations;
            if (warm != 0) ++calls;
            if (!check(state, seqread_read(reader, buffers.pointers.data(), call))) break;
        }
        allocated += allocations - warm;
        seqread_finish(reader);
    }
    report(state, calls, allocated);
}

void libraryWrites(benchmark::State& state) {
    auto const call = static_cast<unsigned>(state.range(0));
    Buffers const buffers;
    std::uint64_t calls = 0, allocated = 0;
    for (auto _ : state) {
        state.PauseTiming();
        auto clip = std::make_unique<Clip>();
        if (!clip->create(state)) break;
        settle();
        auto const before = allocations.load();
        state.ResumeTiming();
        if (!clip->record(state, buffers, call)) break;
        allocated += allocations - before;
        calls += samplesInAll() / call;
        state.PauseTiming();
        clip.reset();
        state.ResumeTiming();
    }
    report(state, calls, allocated);
}

struct Yardstick {
    int format;
    char const* name;
};
constexpr Yardstick RF64{SF_FORMAT_RF64 | SF_FORMAT_PCM_32, "bench-audio.rf64"};
constexpr Yardstick W64{SF_FORMAT_W64 | SF_FORMAT_PCM_32, "bench-audio.w64"};

bool sndfileRecords(Yardstick const& yardstick, Buffers& buffers, unsigned call) {
    SF_INFO info{};
    info.samplerate = RATE;
    info.channels = SUBCHANNELS;
    info.format = yardstick.format;
    SNDFILE* const file = ::sf_open(yardstick.name, SFM_WRITE, &info);
    bool good = file != nullptr;
    for (std::uint64_t done = 0; good && done < samplesInAll(); done += call) {
        std::int32_t* to = buffers.interleaved.data();
        for (unsigned i = 0; i < call; ++i)
            for (unsigned s = 0; s < SUBCHANNELS; ++s)
                *to++ = buffers.pointers[s][i];
        good = ::sf_writef_int(file, buffers.interleaved.data(), call) == call;
    }
    ::sf_close(file);
    return good;
}

bool sndfileReads(Yardstick const& yardstick, Buffers& buffers, unsigned call) {
    SF_INFO info{};
    SNDFILE* const file = ::sf_open(yardstick.name, SFM_READ, &info);
    bool good = file != nullptr;
    for (std::uint64_t done = 0; good && done < samplesInAll(); done += call) {
        good = ::sf_readf_int(file, buffers.interleaved.data(), call) == call;
        std::int32_t const* from = buffers.interleaved.data();
        for (unsigned i = 0; i < call; ++i)
            for (unsigned s = 0; s < SUBCHANNELS; ++s)
                buffers.pointers[s][i] = *from++;
        benchmark::ClobberMemory();
    }
    ::sf_close(file);
    return good;
}

void yardstickReads(benchmark::State& state, Yardstick const& yardstick) {
    Buffers buffers;
    bool good = sndfileRecords(yardstick, buffers, LONGEST_CALL);
    settle();
    good = good && sndfileReads(yardstick, buffers, LONGEST_CALL);  // into the page cache
    for (auto _ : state) {
        if (good) good = sndfileReads(yardstick, buffers, static_cast<unsigned>(state.range(0)));
    }
    if (!good) state.SkipWithError("libsndfile failed");
    std::filesystem::remove(yardstick.name);
    report(state, 0, 0);
}

void yardstickWrites(benchmark::State& state, Yardstick const& yardstick) {
    Buffers buffers;
    bool good = true;
    for (auto _ : state) {
        state.PauseTiming();
        std::filesystem::remove(yardstick.name);
        settle();
        state.ResumeTiming();
        if (good) good = sndfileRecords(yardstick, buffers, static_cast<unsigned>(state.range(0)));
    }
    if (!good) state.SkipWithError("libsndfile failed");
    std::filesystem::remove(yardstick.name);
    report(state, 0, 0);
}

// The throughput of the file system alone: direct transfers of the same units to and from huge pages. Four threads read
// runs of eight units in parallel, as fast as the disk can. Units are written one after the other, because the library
// also completes each unit before it starts the next one.
class RawUnits {
  public:
    RawUnits() : descriptor(::open(NAME, O_RDWR | O_CREAT | O_TRUNC | O_DIRECT | O_CLOEXEC, 0600)) {}
    ~RawUnits() {
        ::close(descriptor);
        std::filesystem::remove(NAME);
    }
    RawUnits(RawUnits const&) = delete;
    RawUnits& operator=(RawUnits const&) = delete;

    bool write() const {
        auto const unit = filled(UNIT_BYTES);
        for (std::uint64_t at = 0; at < bytesInAll(); at += UNIT_BYTES)
            if (::pwrite(descriptor, unit.get(), UNIT_BYTES, static_cast<off_t>(at)) != UNIT_BYTES) return false;
        return true;
    }
    bool read() const {
        std::atomic<std::uint64_t> next = 0;
        std::atomic<bool> good = true;
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i)
            threads.emplace_back([&] {
                auto const run = filled(RUN_BYTES);
                for (std::uint64_t at; (at = next.fetch_add(RUN_BYTES)) < bytesInAll();) {
                    auto const expected = static_cast<ssize_t>(std::min<std::uint64_t>(RUN_BYTES, bytesInAll() - at));
                    if (::pread(descriptor, run.get(), RUN_BYTES, static_cast<off_t>(at)) != expected) good = false;
                }
            });
        for (auto& thread : threads)
            thread.join();
        return good;
    }

  private:
    static constexpr char const* NAME = "bench-audio.raw";
    static constexpr std::size_t UNIT_BYTES = SUBCHANNELS * 8192, RUN_BYTES = 8 * UNIT_BYTES;  // at 25Hz

    static std::uint64_t bytesInAll() { return samplesInAll() / LONGEST_CALL * UNIT_BYTES; }
    static platform::TransferMemory filled(std::size_t bytes) {
        auto memory = platform::allocateTransferMemory(bytes);
        std::memset(memory.get(), 0x5A, bytes);
        return memory;
    }

    int descriptor;
};

void rawReads(benchmark::State& state) {
    RawUnits const units;
    bool good = units.write();
    settle();
    for (auto _ : state)
        good = good && units.read();
    if (!good) state.SkipWithError("direct reading failed");
    report(state, 0, 0);
}

void rawWrites(benchmark::State& state) {
    bool good = true;
    for (auto _ : state) {
        state.PauseTiming();
        auto units = std::make_unique<RawUnits>();
        settle();
        state.ResumeTiming();
        good = good && units->write();
        state.PauseTiming();
        units.reset();
        state.ResumeTiming();
    }
    if (!good) state.SkipWithError("direct writing failed");
    report(state, 0, 0);
}

void calls(benchmark::internal::Benchmark* each) {
    each->Arg(1920)->Arg(64)->Unit(benchmark::kMillisecond)->UseRealTime();
}

BENCHMARK(libraryReads)->Name("audio_read/library")->Apply(calls);
BENCHMARK_CAPTURE(yardstickReads, rf64, RF64)->Name("audio_read/libsndfile_rf64")->Apply(calls);
BENCHMARK_CAPTURE(yardstickReads, w64, W64)->Name("audio_read/libsndfile_w64")->Apply(calls);
BENCHMARK(rawReads)->Name("audio_read/disk")->Apply(calls);
BENCHMARK(copying)->Name("audio_read/memcpy")->Apply(calls);
BENCHMARK(libraryWrites)->Name("audio_write/library")->Apply(calls);
BENCHMARK_CAPTURE(yardstickWrites, rf64, RF64)->Name("audio_write/libsndfile_rf64")->Apply(calls);
BENCHMARK_CAPTURE(yardstickWrites, w64, W64)->Name("audio_write/libsndfile_w64")->Apply(calls);
BENCHMARK(rawWrites)->Name("audio_write/disk")->Apply(calls);
BENCHMARK(copying)->Name("audio_write/memcpy")->Apply(calls);

}  // namespace
