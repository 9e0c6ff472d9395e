// The 16-byte unique identifier that names each created clip.
#pragma once

#include <cstddef>
#include <vector>

#include "foundation/kstring.h"

namespace KelvonClip {

class KID {
  public:
    KID() = default;                                                     // uninitialized
    explicit KID(std::vector<std::byte> raw) : bytes(std::move(raw)) {}  // as they lie in the standard UUID byte order

    // A new identifier from the host's generator; empty (after an assertion line) when the host has none to give.
    static KID create();

    // Braces around 8, 4, 4, 4 and 12 upper-case hexadecimal digits with hyphens between; "uninitialized" when empty;
    // "????" (after an assertion line) for any other size.
    KString toText() const;
    std::size_t size() const { return bytes.size(); }

  private:
    std::vector<std::byte> bytes;
};

}  // namespace KelvonClip
