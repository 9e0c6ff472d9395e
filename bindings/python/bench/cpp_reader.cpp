// The C++ side of the benchmark of the Python package, which loads it with ctypes: both sides read through one library,
// in one process, from one clip.
#include <kelvonclip/kelvonclip.h>

#include <chrono>

/// Reads units 0 to `units` - 1 again and again.
/// @return the seconds that it took; negative if a unit could not be read
extern "C" __attribute__((visibility("default"))) double seconds_to_read(unsigned track, unsigned units,
                                                                         unsigned rounds, void* buffer) {
    auto const begin = std::chrono::steady_clock::now();
    for (unsigned round = 0; round < rounds; ++round)
        for (unsigned unit = 0; unit < units; ++unit)
            if (KelvonClip::track_read(track, unit, buffer) != nullptr) return -1;
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}
