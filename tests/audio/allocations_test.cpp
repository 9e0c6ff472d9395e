// Checks that streams which have run for a while allocate nothing, including the host's files. Counts all allocations
// of this program.
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <new>
#include <vector>

#include <gtest/gtest.h>
#include <kelvonclip/kelvon_clip.h>
#include <kelvonclip/seq_read.h>
#include <kelvonclip/seq_write.h>
#include <kelvonclip/track.h>

#include "foundation/kstring.h"
#include "support/scratch.h"

namespace {

std::atomic<std::uint64_t> allocations{0};

}  // namespace

// The aligned forms are not replaced, because only whole buffers use them. Not inlined: the compiler might inline one
// of the two only, and then warn about a mismatch.
[[gnu::noinline]] void* operator new(std::size_t bytes) {
    allocations.fetch_add(1, std::memory_order_relaxed);
    if (void* const memory = std::malloc(bytes > 0 ? bytes : 1)) return memory;
    throw std::bad_alloc();
}
// What the library allocates without an exception.
[[gnu::noinline]] void* operator new(std::size_t bytes, std::nothrow_t const&) noexcept {
    allocations.fetch_add(1, std::memory_order_relaxed);
    return std::malloc(bytes > 0 ? bytes : 1);
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace KelvonClip {
namespace {

constexpr unsigned SUBCHANNELS = 16;
constexpr unsigned BLOCK_SAMPLES = 1920;  // at 25Hz
constexpr unsigned UNITS_TO_WARM_UP = 100, UNITS_COUNTED = 400;

// The number of concurrent transfers varies a little with thread timing, and so does the memory in the pool. An
// allocation for each call or unit would count in hundreds.
constexpr std::uint64_t A_FEW = 16;

void expectOk(wchar_t const* message) { EXPECT_EQ(message == nullptr ? KString() : KString(message), KString()); }

// The number of samples in a call.
class WarmStreams : public testing::TestWithParam<unsigned> {
  protected:
    void SetUp() override {
        unsigned creation = 0;
        expectOk(create_begin(folder.wide("audio.clip").c_str(), toVideoStandard(L"1080p 25Hz"), &creation));
        expectOk(cfg_track_count_audio(creation, 1));
        expectOk(cfg_audio_hemlock(creation, SUBCHANNELS));
        expectOk(create_finish(creation, &clip));
        track = clip_get_track(clip, 0);
        for (auto& stream : streams)
            pointers.push_back(stream.data());
    }
    void TearDown() override { clip_close(clip); }

    void transfer(unsigned units, std::function<wchar_t const*()> const& one_call) const {
        for (unsigned calls = units * BLOCK_SAMPLES / GetParam(); calls > 0; --calls)
            expectOk(one_call());
    }

    // The number of allocations after enough units have passed through the stream.
    std::uint64_t allocatedWhenWarm(std::function<wchar_t const*()> const& one_call) const {
        transfer(UNITS_TO_WARM_UP, one_call);
        std::uint64_t const before = allocations;
        transfer(UNITS_COUNTED, one_call);
        return allocations - before;
    }

    void record(unsigned units) {
        unsigned writer = 0;
        expectOk(seqwrite_begin(track, &writer));
        transfer(units, [&] { return seqwrite_write(writer, pointers.data(), GetParam()); });
        expectOk(seqwrite_finish(writer));
    }

    ScratchFolder folder;
    unsigned clip = 0, track = 0;
    std::vector<std::vector<std::int32_t>> streams{SUBCHANNELS, std::vector<std::int32_t>(BLOCK_SAMPLES, 7)};
    std::vector<std::int32_t*> pointers;
};

TEST_P(WarmStreams, WriteWithoutAllocating) {
    unsigned writer = 0;
    expectOk(seqwrite_begin(track, &writer));
    EXPECT_LE(allocatedWhenWarm([&] { return seqwrite_write(writer, pointers.data(), GetParam()); }), A_FEW);
    expectOk(seqwrite_finish(writer));
}

TEST_P(WarmStreams, ReadWithoutAllocating) {
    record(UNITS_TO_WARM_UP + UNITS_COUNTED + 1);
    unsigned reader = 0;
    expectOk(seqread_begin(track, &reader));
    EXPECT_LE(allocatedWhenWarm([&] { return seqread_read(reader, pointers.data(), GetParam()); }), A_FEW);
    seqread_finish(reader);
}

INSTANTIATE_TEST_SUITE_P(Calls, WarmStreams, testing::Values(64u, 640u, 1920u));

}  // namespace
}  // namespace KelvonClip
