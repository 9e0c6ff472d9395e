// When a file came into being.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace KelvonClip::platform {

// In whole seconds since 1970-01-01 00:00:00 UTC. Nothing if there is no such file or the host does not tell. Names as
// in HostFile::open.
std::optional<std::uint64_t> birthOfFile(std::u16string const& name);

}  // namespace KelvonClip::platform
