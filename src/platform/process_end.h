// What is left of a process that ends.
#pragma once

namespace KelvonClip::platform {

// Whether the process is ending and the host has already ended every other thread, wherever it was. From then on locks
// that such a thread held are never given back, and objects that it held are never let go of. Always false on Linux,
// where the other threads run on while the library's static objects are destroyed.
bool otherThreadsAreGone();

}  // namespace KelvonClip::platform
