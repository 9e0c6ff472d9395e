// The C++ side of the benchmark of the Python package, which loads it with ctypes: both sides read through one library,
// in one process, from one clip.
#include <kelvonclip/kelvonclip.h>

#include <chrono>

namespace {

template <class Read>
double secondsOf(unsigned rounds, Read&& read) {
    auto const begin = std::chrono::steady_clock::now();
    for (unsigned round = 0; round < rounds; ++round)
        if (!read()) return -1;
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

}  // namespace

// Both read units 0 to `units` - 1 again and again, and return the seconds that it took; negative if a unit could not
// be read.
extern "C" {

__attribute__((visibility("default"))) double seconds_to_read(unsigned track, unsigned units, unsigned rounds,
                                                              void* buffer) {
    return secondsOf(rounds, [&] {
        for (unsigned unit = 0; unit < units; ++unit)
            if (KelvonClip::track_read(track, unit, buffer) != nullptr) return false;
        return true;
    });
}

// In one call, into memory of unit_buffer_alloc.
__attribute__((visibility("default"))) double seconds_to_read_together(unsigned track, unsigned units, unsigned rounds,
                                                                       void* buffer, unsigned stride) {
    return secondsOf(rounds, [&] { return KelvonClip::track_read_units(track, 0, units, buffer, stride) == nullptr; });
}
}
