// The 16-byte unique identifier that names each created clip.
#pragma once

#include <cstddef>
#include <utility>
#include <vector>

#include "foundation/kstring.h"

namespace KelvonClip {

class KID {
  public:
    KID() = default;                                                     // uninitialized
    explicit KID(std::vector<std::byte> raw) : bytes(std::move(raw)) {}  // in the standard byte order of UUIDs

    // A new identifier from the host's generator; empty (after an assertion line) if the host cannot supply one.
    static KID create();

    // Groups of 8, 4, 4, 4 and 12 upper-case hexadecimal digits, separated by hyphens and enclosed in braces;
    // "uninitialized" when empty; "????" (after an assertion line) for any other size.
    KString toText() const;
    std::size_t size() const { return bytes.size(); }

  private:
    std::vector<std::byte> bytes;
};

}  // namespace KelvonClip
