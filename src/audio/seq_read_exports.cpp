// The exported functions of the sequential reader, and the finishing of open readers when the library ends.
#include <chrono>
#include <cstdint>
#include <exception>
#include <memory>

#include <kelvonclip/seq_read.h>

#include "audio/audio_track.h"
#include "audio/hemlock_reader.h"
#include "audio/stream_registry.h"
#include "foundation/exported.h"
#include "foundation/never_destroyed.h"

namespace KelvonClip {

namespace {

using Readers = StreamRegistry<HemlockReader>;

// The registry is never destroyed, because another thread may still be in one of these functions when the process ends.
Readers& readers() {
    static auto& registry = neverDestroyed<Readers>();
    return registry;
}

// When a process ends, the host may have terminated the pool's threads already. What they were reading never completes,
// so the wait has a time limit. If it expires, the readers are leaked, because a thread may still be using them.
void finishAllReaders() noexcept {
    constexpr std::uint32_t TASK_TIMEOUT_MS = 5000;
    constexpr std::chrono::seconds PATIENCE{2};
    try {
        auto open = std::make_unique<Readers::Streams>();
        *open = readers().removeAll();
        auto const deadline = std::chrono::steady_clock::now() + PATIENCE;
        bool all_cancelled = true;
        for (auto const& [handle, reader] : *open) {
            auto const turn = reader->turn().takeUntil(deadline);
            if (turn)
                reader->cancelReadAhead();
            else
                all_cancelled = false;
        }
        if (!all_cancelled || !hemlock::UnitReadAhead::waitForTasks(TASK_TIMEOUT_MS)) (void)open.release();
    } catch (std::exception const&) {
        // Out of memory: the readers are leaked.
    }
}

// Finishes the readers when the library ends, because background reads must not outlive its code. Static objects are
// destroyed in reverse order of creation. This one is created with the first reader, after that of the clip directory,
// so readers are finished before clips are closed.
void finishReadersAtEnd() {
    static struct AtEnd {
        ~AtEnd() { finishAllReaders(); }
    } const at_end;
}

KString beginReading(std::uint32_t track, unsigned int* reader) {
    AudioTrack const audio = findAudioTrack(track, reader);
    if (!audio.error.empty()) return audio.error;
    auto const made = std::make_shared<HemlockReader>(audio.shape, audio.units);
    finishReadersAtEnd();
    readers().add(made);
    *reader = made->handle();
    return {};
}

KString read(std::uint32_t handle, std::int32_t* const* buffers, std::uint32_t n) {
    return readers().use(handle, "Invalid handle", [&](HemlockReader& reader) {
        if (buffers == nullptr) return KString("Invalid argument (null pointer)");
        return reader.read(buffers, n);
    });
}

}  // namespace

wchar_t const* seqread_begin(unsigned int track, unsigned int* reader) {
    return exported([&] { return beginReading(track, reader); });
}

wchar_t const* seqread_read(unsigned int reader, std::int32_t* const* buffers, unsigned int n) {
    return exported([&] { return read(reader, buffers, n); });
}

wchar_t const* seqread_seek(unsigned int reader, std::uint64_t sample) {
    return exported([&] {
        return readers().use(reader, "Invalid handle", [&](HemlockReader& found) {
            found.seek(sample);
            return KString();
        });
    });
}

std::uint64_t seqread_position(unsigned int reader) {
    return exportedQuery(std::uint64_t{0}, [&] {
        auto const found = readers().find(reader);
        return found ? found->position() : 0;
    });
}

std::uint64_t seqread_samples_remaining(unsigned int reader) {
    return exportedQuery(std::uint64_t{0}, [&] {
        auto const found = readers().find(reader);
        return found ? found->samplesRemaining() : 0;
    });
}

unsigned int seqread_subchannel_count(unsigned int reader) {
    return exportedQuery(0u, [&] {
        auto const found = readers().find(reader);
        return found ? found->subchannelCount() : 0u;
    });
}

void seqread_finish(unsigned int reader) {
    exportedQuery(false, [&] { return readers().remove(reader) != nullptr; });
}

}  // namespace KelvonClip
