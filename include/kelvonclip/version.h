/// @file
/// The version of the headers, and that of the library that is loaded.
///
/// Versions with the same major version are compatible, those of 0 as well: a program that was built with the headers
/// of one runs with the library of any later one.
#pragma once

#include <kelvonclip/export.h>

/// @{
/// The version of the headers. The build reads it from here.
#define KELVONCLIP_VERSION_MAJOR 0
#define KELVONCLIP_VERSION_MINOR 1
#define KELVONCLIP_VERSION_PATCH 0
/// @}

/// The version as one number that rises with the version: 1002003 is 1.2.3.
#define KELVONCLIP_VERSION                                                                                             \
    (KELVONCLIP_VERSION_MAJOR * 1000000 + KELVONCLIP_VERSION_MINOR * 1000 + KELVONCLIP_VERSION_PATCH)

namespace KelvonClip {

/// The version of the library that is loaded, as KELVONCLIP_VERSION counts. Threads: any.
KELVONCLIP_API unsigned int library_version();

/// The same as text, such as "0.1.0". It stays valid until the library is unloaded. Threads: any.
KELVONCLIP_API wchar_t const* library_version_text();

}  // namespace KelvonClip
