#include "platform/uuid.h"

#include <windows.h>

#include <algorithm>
#include <iterator>
#include <rpc.h>

namespace KelvonClip::platform {

bool newUuid(Uuid& uuid) {
    UUID made;
    if (UuidCreate(&made) != RPC_S_OK) return false;
    uuid.time_low = made.Data1;
    uuid.time_mid = made.Data2;
    uuid.time_high_and_version = made.Data3;
    std::copy(std::begin(made.Data4), std::end(made.Data4), uuid.rest);
    return true;
}

}  // namespace KelvonClip::platform
