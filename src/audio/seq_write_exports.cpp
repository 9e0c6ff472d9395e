// The exported functions of the sequential writer, and what becomes of open writers at the end of the library.
#include <kelvonclip/seq_write.h>

#include <random>

#include "audio/audio_track.h"
#include "audio/hemlock_writer.h"
#include "audio/stream_registry.h"
#include "foundation/exported.h"
#include "foundation/kprotect.h"
#include "platform/host.h"

namespace KelvonClip {

namespace {

using Writers = StreamRegistry<HemlockWriter>;

Writers& writers() {
    static auto& registry = *new Writers;  // stays, as that of the readers does
    return registry;
}

void finishAllWriters() noexcept {
    exportedQuery(false, [] {
        // One that cannot be finished does not keep the others from it.
        for (auto const& writer : writers().removeAll())
            guarded([&] { return writer->finish(); });
        return true;
    });
}

// Arranged when the first writer is begun: as with the readers, the writers are finished before the clips are closed, so
// that what they hold gets into the file.
void finishWritersAtEnd() {
    static struct AtEnd {
        ~AtEnd() { finishAllWriters(); }
    } const at_end;
}

// One generator for all writers, so that the recordings of one process are told apart by their block words.
std::vector<std::uint32_t> drawBlockWords(std::uint32_t count) {
    static auto& generator =
        *new KProtect<std::mt19937>(std::mt19937(static_cast<std::mt19937::result_type>(platform::secondsSince1970())));
    std::vector<std::uint32_t> words(count);
    auto item = generator.lock();
    for (auto& word : words)
        word = static_cast<std::uint32_t>(item.value());
    return words;
}

KString begin(std::uint32_t track, unsigned int* writer) {
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
    auto const writer = writers().find(handle);
    if (!writer) return KString("Invalid handle");
    if (buffers == nullptr) return KString("Invalid argument (null pointer)");
    return writer->write(buffers, n);
}

KString finish(std::uint32_t handle) {
    auto const writer = writers().remove(handle);
    return writer ? writer->finish() : KString("Invalid handle");
}

}  // namespace

wchar_t const* seqwrite_begin(unsigned int track, unsigned int* writer) {
    return exported([&] { return begin(track, writer); });
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
