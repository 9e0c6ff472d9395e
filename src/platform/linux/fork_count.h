// Counts the forks; see forkCount in platform/host.h.
#pragma once

namespace KelvonClip::platform {

// To be called in the child.
void countFork();

}  // namespace KelvonClip::platform
