# Flags for all targets of this project. None of them applies to users of the installed library.
add_library(kelvonclip_build_flags INTERFACE)
target_compile_options(kelvonclip_build_flags INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow)
if(KELVONCLIP_WERROR)
  target_compile_options(kelvonclip_build_flags INTERFACE -Werror)
endif()

# Process-wide unique symbols would prevent the library from being unloaded.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND NOT WIN32)
  target_compile_options(kelvonclip_build_flags INTERFACE -fno-gnu-unique)
endif()

# Sanitizers have a target of their own, because GoogleTest is built with them too, but without our warnings.
add_library(kelvonclip_sanitizers INTERFACE)
if(KELVONCLIP_SANITIZE)
  target_compile_options(kelvonclip_sanitizers INTERFACE -fsanitize=${KELVONCLIP_SANITIZE} -fno-omit-frame-pointer
                                                         -fno-sanitize-recover=all)
  target_link_options(kelvonclip_sanitizers INTERFACE -fsanitize=${KELVONCLIP_SANITIZE})
endif()
target_link_libraries(kelvonclip_build_flags INTERFACE kelvonclip_sanitizers)

# Hardening of what is installed, as in Debian's own packages. Sanitizers find more, and fortified functions hide from them.
# scripts/check-hardening reads the result. The flags for Windows are in its toolchain file.
add_library(kelvonclip_hardening INTERFACE)
if(NOT WIN32 AND NOT KELVONCLIP_SANITIZE)
  target_compile_options(kelvonclip_hardening INTERFACE -fstack-protector-strong
                         $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE> $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=2>)
  target_link_options(kelvonclip_hardening INTERFACE LINKER:-z,relro LINKER:-z,now LINKER:-z,noexecstack)
endif()

if(WIN32)
  # GCC 12's C++ library for this host initialises std::recursive_mutex statically and never destroys it, which leaks
  # memory and, after contention, an event handle. This macro of the C++ library makes the constructor and destructor call
  # the thread library, as for std::mutex.
  target_compile_definitions(kelvonclip_build_flags INTERFACE _GTHREAD_USE_RECURSIVE_MUTEX_INIT_FUNC=1)
  target_compile_definitions(kelvonclip_build_flags INTERFACE _WIN32_WINNT=0x0601 NTDDI_VERSION=0x06010000 UNICODE
                                                              _UNICODE WIN32_LEAN_AND_MEAN NOMINMAX)
else()
  target_compile_definitions(kelvonclip_build_flags INTERFACE _FILE_OFFSET_BITS=64)
endif()
