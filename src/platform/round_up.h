// Rounding to multiples.
#pragma once

namespace KelvonClip::platform {

// The least multiple of `unit` that is not below `number`. The caller makes sure that it fits the type.
template <class Number>
constexpr Number roundUp(Number number, Number unit) {
    return (number + unit - 1) / unit * unit;
}

}  // namespace KelvonClip::platform
