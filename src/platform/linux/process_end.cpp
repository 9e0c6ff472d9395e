#include "platform/process_end.h"

namespace KelvonClip::platform {

bool otherThreadsAreGone() { return false; }

}  // namespace KelvonClip::platform
