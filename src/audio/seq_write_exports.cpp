// The exported functions of the sequential writer, and the finishing of open writers when the library ends.
#include <kelvonclip/seq_write.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <random>
#include <vector>

#include "audio/audio_track.h"
#include "audio/hemlock_writer.h"
#include "audio/stream_registry.h"
#include "foundation/exported.h"
#include "foundation/kprotect.h"
#include "foundation/never_destroyed.h"
#include "platform/host.h"

namespace KelvonClip {

namespace {

using Writers = StreamRegistry<HemlockWriter>;

Writers& writers() {
    static auto& registry = neverDestroyed<Writers>();  // never destroyed, for the same reason as the readers' registry
    return registry;
}

// A forked child does not finish the parent's recordings. They are kept for ever, because destroying them might wait
// for locks that other threads of the parent held.
void leaveToTheParent(std::shared_ptr<HemlockWriter> const& writer) {
    static auto& parents = neverDestroyed<std::vector<std::shared_ptr<HemlockWriter>>>();
    parents.push_back(writer);
}

void finishAllWriters() noexcept {
    constexpr std::chrono::seconds PATIENCE{2};
    auto const deadline = std::chrono::steady_clock::now() + PATIENCE;
    // A failure of one writer does not affect the others.
    for (auto const& [handle, writer] : writers().removeAll())
        unreported([&, &writer = writer] {
            if (!writer->belongsToThisProcess()) return leaveToTheParent(writer);
            if (auto const turn = writer->turn().takeUntil(deadline)) writer->finish();
        });
}

// Finishes the writers when the library ends. The object is created with the first writer, after that of the clip
// directory, so the writers' last samples are written before clips are closed.
void finishWritersAtEnd() {
    static struct AtEnd {
        ~AtEnd() { finishAllWriters(); }
    } const at_end;
}

// One generator for all writers, so that different recordings of one process have different block words. KEEP: seeded
// when the library is loaded.
auto const seed = static_cast<std::mt19937::result_type>(platform::secondsSince1970());

std::vector<std::uint32_t> drawBlockWords(std::uint32_t count) {
    static auto& generator = neverDestroyed<KProtect<std::mt19937>>(std::mt19937(seed));
    std::vector<std::uint32_t> words(count);
    auto item = generator.hold();
    for (auto& word : words)
        word = static_cast<std::uint32_t>(item.value());
    return words;
}

KString beginRecording(std::uint32_t track, unsigned int* writer) {
    AudioTrack const audio = findAudioTrack(track, writer);
    if (!audio.error.empty()) return audio.error;
    auto const made =
        std::make_shared<HemlockWriter>(audio.shape, drawBlockWords(audio.shape.subchannel_count), audio.units);
    finishWritersAtEnd();
    writers().add(made);
    *writer = made->handle();
    return {};
}

KString write(std::uint32_t handle, std::int32_t const* const* buffers, std::uint32_t n) {
    return writers().use(handle, "Invalid handle", [&](HemlockWriter& writer) {
        if (buffers == nullptr) return KString("Invalid argument (null pointer)");
        return writer.write(buffers, n);
    });
}

// After a lack of memory the writer stays, with all its data, and can be finished again.
KString finish(std::uint32_t handle) {
    return writers().removeAfter(handle, "Invalid handle", [](HemlockWriter& writer) { return writer.finish(); });
}

}  // namespace

wchar_t const* seqwrite_begin(unsigned int track, unsigned int* writer) {
    return exported([&] { return beginRecording(track, writer); });
}

wchar_t const* seqwrite_write(unsigned int writer, std::int32_t const* const* buffers, unsigned int n) {
    return exported([&] { return write(writer, buffers, n); });
}

unsigned int seqwrite_subchannel_count(unsigned int writer) {
    return exportedQuery(0u, [&] {
        auto const found = writers().find(writer);
        return found ? found->subchannelCount() : 0u;
    });
}

wchar_t const* seqwrite_finish(unsigned int writer) {
    return exported([&] { return finish(writer); });
}

}  // namespace KelvonClip
