// The exported functions that transfer several units, and those of memory for units.
#include <kelvonclip/units.h>

#include <cstddef>
#include <cstdint>
#include <limits>

#include "clip/clip_directory.h"
#include "clip/unit_memory.h"
#include "clip/unit_runs.h"
#include "foundation/exported.h"

namespace KelvonClip {

namespace {

constexpr char const* UNKNOWN_CLIP = "invalid clip handle";

}  // namespace

void* unit_buffer_alloc(unsigned int track, unsigned int count, unsigned int* stride) {
    return exportedQuery<void*>(nullptr, [&]() -> void* {
        auto const found = findTrack(track);
        if (!found || !found.track->format().valid) return nullptr;
        std::uint32_t const stored = found.track->format().stored_unit_size;
        std::uint64_t const bytes = std::uint64_t{count} * stored;
        if (count == 0 || bytes > std::numeric_limits<std::size_t>::max()) return nullptr;
        void* const buffer = allocateUnitMemory(static_cast<std::size_t>(bytes));
        if (stride != nullptr) *stride = stored;
        return buffer;
    });
}

void unit_buffer_free(void* buffer) {
    exportedQuery(false, [&] { return freeUnitMemory(buffer), true; });
}

wchar_t const* track_read_units(unsigned int track, unsigned int first, unsigned int count, void* buffer,
                                unsigned int stride) {
    return exported([&] { return readUnitRun({track, first, count, stride, 0, buffer}); });
}

wchar_t const* clip_read_units(unsigned int clip, UnitRun const* runs, unsigned int count, unsigned int* done) {
    return exported([&] { return transferUnitRuns(clip, UNKNOWN_CLIP, Direction::read, {runs, count}, done); });
}

wchar_t const* clip_write_units(unsigned int clip, UnitRun const* runs, unsigned int count, unsigned int* done) {
    return exported([&] { return transferUnitRuns(clip, UNKNOWN_CLIP, Direction::write, {runs, count}, done); });
}

}  // namespace KelvonClip
