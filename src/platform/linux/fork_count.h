// Counts the forks; see forkCount in platform/host.h.
#pragma once

namespace KelvonClip::platform {

// Called in the child.
void countFork();

}  // namespace KelvonClip::platform
