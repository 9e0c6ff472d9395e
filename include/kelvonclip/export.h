// Marks what the library exports; everything else is hidden.
#pragma once

#if defined(_WIN32)
#if defined(KELVONCLIP_BUILDING)
#define KELVONCLIP_API __declspec(dllexport)
#elif defined(KELVONCLIP_STATIC)
#define KELVONCLIP_API
#else
#define KELVONCLIP_API __declspec(dllimport)
#endif
#else
#define KELVONCLIP_API __attribute__((visibility("default")))
#endif
