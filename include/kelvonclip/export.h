/// @file
/// Marks what the library exports; everything else is hidden.
#pragma once

/// @def KELVONCLIP_API
/// In front of every exported declaration. A program that links the library's objects instead of the library itself
/// defines `KELVONCLIP_STATIC`.

/// @def KELVONCLIP_INLINE_API
/// The same for inline functions, which are exported too but never imported: callers have their bodies.

#if defined(_WIN32)
#if defined(KELVONCLIP_BUILDING)
#define KELVONCLIP_API __declspec(dllexport)
#define KELVONCLIP_INLINE_API __declspec(dllexport)
#elif defined(KELVONCLIP_STATIC)
#define KELVONCLIP_API
#define KELVONCLIP_INLINE_API
#else
#define KELVONCLIP_API __declspec(dllimport)
#define KELVONCLIP_INLINE_API
#endif
#else
#define KELVONCLIP_API __attribute__((visibility("default")))
#define KELVONCLIP_INLINE_API KELVONCLIP_API
#endif
