/// @file
/// Big-endian numbers as they lie in files, and the host's numbers.
///
/// The arguments of each function are the consecutive pieces of one big-endian quantity, the most significant first.
///   * fromBE takes pieces as the host loaded them from big-endian storage, and gives the number.
///   * toBE takes pieces as numbers, and gives the value whose bytes in the host's memory are in stream order.
///
/// So `fromBE::u16(0x12, 0x34)` is 0x1234, while `toBE::u16(0x12, 0x34)` is 0x3412: stored, it writes 12 34. With a
/// single argument the two directions are the same reversal of bytes.
///
/// The number in a function's name is that of the result's bits. The signed variants (s) treat their arguments as raw
/// bits: no piece is sign-extended, and the result is the unsigned variant's (u), reinterpreted. The host is
/// little-endian; others are refused when the header is compiled.
///
/// Threads: pure functions. They are inline, and the library also exports them under the same names.
#pragma once

#include <cstdint>
#include <type_traits>

#include <kelvonclip/export.h>

// Compilers that don't tell have little-endian targets only.
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ != __ORDER_LITTLE_ENDIAN__
#error "the byte-order helpers are written for little-endian hosts"
#endif

/// What fromBE and toBE are made of; not exported.
namespace KelvonClip::byte_order {

/// The number whose bytes come in the reverse order.
template <class Number>
constexpr Number reversed(Number number) {
    std::make_unsigned_t<Number> result = 0;
    for (unsigned i = 0; i < sizeof number; ++i)
        result = static_cast<std::make_unsigned_t<Number>>(static_cast<std::uint64_t>(result) << 8 |
                                                           (static_cast<std::uint64_t>(number) >> (8 * i) & 0xFF));
    return static_cast<Number>(result);
}

/// Two and more pieces, the first one on top.
template <class Whole, class... Pieces>
constexpr Whole joined(Pieces... pieces) {
    std::uint64_t whole = 0;
    ((whole = whole << (8 * sizeof pieces) | static_cast<std::make_unsigned_t<Pieces>>(pieces)), ...);
    return static_cast<Whole>(whole);
}

/// The body of fromBE's functions of several pieces.
template <class Whole, class... Pieces>
constexpr Whole from(Pieces... pieces) {
    return joined<Whole>(reversed(pieces)...);
}

/// The body of toBE's functions of several pieces.
template <class Whole, class... Pieces>
constexpr Whole to(Pieces... pieces) {
    return reversed(joined<Whole>(pieces...));
}

}  // namespace KelvonClip::byte_order

/// Big-endian pieces, as loaded, to a number.
namespace fromBE {

/// @{
/// As it is: one byte has no order.
KELVONCLIP_INLINE_API constexpr unsigned char u8(unsigned char a) { return a; }
KELVONCLIP_INLINE_API constexpr signed char s8(signed char a) { return a; }
/// @}

/// @{
/// The number whose big-endian pieces, as loaded, are the arguments.
KELVONCLIP_INLINE_API constexpr unsigned short u16(unsigned char a, unsigned char b) {
    return KelvonClip::byte_order::from<unsigned short>(a, b);
}
KELVONCLIP_INLINE_API constexpr unsigned short u16(unsigned short a) { return KelvonClip::byte_order::reversed(a); }
KELVONCLIP_INLINE_API constexpr short s16(signed char a, signed char b) {
    return KelvonClip::byte_order::from<short>(a, b);
}
KELVONCLIP_INLINE_API constexpr short s16(short a) { return KelvonClip::byte_order::reversed(a); }
/// @}

/// @{
/// The number whose big-endian pieces, as loaded, are the arguments.
KELVONCLIP_INLINE_API constexpr unsigned int u32(unsigned char a, unsigned char b, unsigned char c, unsigned char d) {
    return KelvonClip::byte_order::from<unsigned int>(a, b, c, d);
}
KELVONCLIP_INLINE_API constexpr unsigned int u32(unsigned short a, unsigned short b) {
    return KelvonClip::byte_order::from<unsigned int>(a, b);
}
KELVONCLIP_INLINE_API constexpr unsigned int u32(unsigned int a) { return KelvonClip::byte_order::reversed(a); }
KELVONCLIP_INLINE_API constexpr int s32(signed char a, signed char b, signed char c, signed char d) {
    return KelvonClip::byte_order::from<int>(a, b, c, d);
}
KELVONCLIP_INLINE_API constexpr int s32(short a, short b) { return KelvonClip::byte_order::from<int>(a, b); }
KELVONCLIP_INLINE_API constexpr int s32(int a) { return KelvonClip::byte_order::reversed(a); }
/// @}

/// @{
/// The number whose big-endian pieces, as loaded, are the arguments.
KELVONCLIP_INLINE_API constexpr std::uint64_t u64(unsigned char a, unsigned char b, unsigned char c, unsigned char d,
                                                  unsigned char e, unsigned char f, unsigned char g, unsigned char h) {
    return KelvonClip::byte_order::from<std::uint64_t>(a, b, c, d, e, f, g, h);
}
KELVONCLIP_INLINE_API constexpr std::uint64_t u64(unsigned short a, unsigned short b, unsigned short c,
                                                  unsigned short d) {
    return KelvonClip::byte_order::from<std::uint64_t>(a, b, c, d);
}
KELVONCLIP_INLINE_API constexpr std::uint64_t u64(unsigned int a, unsigned int b) {
    return KelvonClip::byte_order::from<std::uint64_t>(a, b);
}
KELVONCLIP_INLINE_API constexpr std::uint64_t u64(std::uint64_t a) { return KelvonClip::byte_order::reversed(a); }
KELVONCLIP_INLINE_API constexpr std::int64_t s64(signed char a, signed char b, signed char c, signed char d,
                                                 signed char e, signed char f, signed char g, signed char h) {
    return KelvonClip::byte_order::from<std::int64_t>(a, b, c, d, e, f, g, h);
}
KELVONCLIP_INLINE_API constexpr std::int64_t s64(short a, short b, short c, short d) {
    return KelvonClip::byte_order::from<std::int64_t>(a, b, c, d);
}
KELVONCLIP_INLINE_API constexpr std::int64_t s64(int a, int b) {
    return KelvonClip::byte_order::from<std::int64_t>(a, b);
}
KELVONCLIP_INLINE_API constexpr std::int64_t s64(std::int64_t a) { return KelvonClip::byte_order::reversed(a); }
/// @}

}  // namespace fromBE

/// Numbers to a value whose bytes in memory are big-endian.
namespace toBE {

/// @{
/// As it is: one byte has no order.
KELVONCLIP_INLINE_API constexpr unsigned char u8(unsigned char a) { return a; }
KELVONCLIP_INLINE_API constexpr signed char s8(signed char a) { return a; }
/// @}

/// @{
/// The value whose bytes in memory are the big-endian bytes of the arguments.
KELVONCLIP_INLINE_API constexpr unsigned short u16(unsigned char a, unsigned char b) {
    return KelvonClip::byte_order::to<unsigned short>(a, b);
}
KELVONCLIP_INLINE_API constexpr unsigned short u16(unsigned short a) { return KelvonClip::byte_order::reversed(a); }
KELVONCLIP_INLINE_API constexpr short s16(signed char a, signed char b) {
    return KelvonClip::byte_order::to<short>(a, b);
}
KELVONCLIP_INLINE_API constexpr short s16(short a) { return KelvonClip::byte_order::reversed(a); }
/// @}

/// @{
/// The value whose bytes in memory are the big-endian bytes of the arguments.
KELVONCLIP_INLINE_API constexpr unsigned int u32(unsigned char a, unsigned char b, unsigned char c, unsigned char d) {
    return KelvonClip::byte_order::to<unsigned int>(a, b, c, d);
}
KELVONCLIP_INLINE_API constexpr unsigned int u32(unsigned short a, unsigned short b) {
    return KelvonClip::byte_order::to<unsigned int>(a, b);
}
KELVONCLIP_INLINE_API constexpr unsigned int u32(unsigned int a) { return KelvonClip::byte_order::reversed(a); }
KELVONCLIP_INLINE_API constexpr int s32(signed char a, signed char b, signed char c, signed char d) {
    return KelvonClip::byte_order::to<int>(a, b, c, d);
}
KELVONCLIP_INLINE_API constexpr int s32(short a, short b) { return KelvonClip::byte_order::to<int>(a, b); }
KELVONCLIP_INLINE_API constexpr int s32(int a) { return KelvonClip::byte_order::reversed(a); }
/// @}

/// @{
/// The value whose bytes in memory are the big-endian bytes of the arguments.
KELVONCLIP_INLINE_API constexpr std::uint64_t u64(unsigned char a, unsigned char b, unsigned char c, unsigned char d,
                                                  unsigned char e, unsigned char f, unsigned char g, unsigned char h) {
    return KelvonClip::byte_order::to<std::uint64_t>(a, b, c, d, e, f, g, h);
}
KELVONCLIP_INLINE_API constexpr std::uint64_t u64(unsigned short a, unsigned short b, unsigned short c,
                                                  unsigned short d) {
    return KelvonClip::byte_order::to<std::uint64_t>(a, b, c, d);
}
KELVONCLIP_INLINE_API constexpr std::uint64_t u64(unsigned int a, unsigned int b) {
    return KelvonClip::byte_order::to<std::uint64_t>(a, b);
}
KELVONCLIP_INLINE_API constexpr std::uint64_t u64(std::uint64_t a) { return KelvonClip::byte_order::reversed(a); }
KELVONCLIP_INLINE_API constexpr std::int64_t s64(signed char a, signed char b, signed char c, signed char d,
                                                 signed char e, signed char f, signed char g, signed char h) {
    return KelvonClip::byte_order::to<std::int64_t>(a, b, c, d, e, f, g, h);
}
KELVONCLIP_INLINE_API constexpr std::int64_t s64(short a, short b, short c, short d) {
    return KelvonClip::byte_order::to<std::int64_t>(a, b, c, d);
}
KELVONCLIP_INLINE_API constexpr std::int64_t s64(int a, int b) {
    return KelvonClip::byte_order::to<std::int64_t>(a, b);
}
KELVONCLIP_INLINE_API constexpr std::int64_t s64(std::int64_t a) { return KelvonClip::byte_order::reversed(a); }
/// @}

}  // namespace toBE
