# Cross-builds for 32-bit Windows with Debian's MinGW-w64; the programs run under scripts/wine-run.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_VERSION 6.1)
set(CMAKE_SYSTEM_PROCESSOR i686)

set(tools i686-w64-mingw32)
# The -posix variants: the plain ones have no std::mutex.
set(CMAKE_C_COMPILER   ${tools}-gcc-posix)
set(CMAKE_CXX_COMPILER ${tools}-g++-posix)
set(CMAKE_RC_COMPILER  ${tools}-windres)
set(CMAKE_AR           ${tools}-gcc-ar-posix     CACHE FILEPATH "")
set(CMAKE_RANLIB       ${tools}-gcc-ranlib-posix CACHE FILEPATH "")

set(CMAKE_FIND_ROOT_PATH /usr/${tools})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# SSE arithmetic gives the same results as the 64-bit builds. Callers and callbacks of Windows align the stack to 4 bytes
# only, so functions that need more realign it. The heap aligns to 8 bytes, not to the 16 that `new` would assume.
set(code_flags "-march=i686 -msse2 -mfpmath=sse -mstackrealign")
set(CMAKE_C_FLAGS_INIT   "${code_flags}")
set(CMAKE_CXX_FLAGS_INIT "${code_flags} -faligned-new=8")

# Everything except the DLLs of Windows is linked statically.
set(link_flags "-static -static-libgcc -static-libstdc++ -Wl,--nxcompat -Wl,--dynamicbase -Wl,--no-insert-timestamp")
set(CMAKE_EXE_LINKER_FLAGS_INIT    "${link_flags} -Wl,--large-address-aware")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${link_flags}")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "${link_flags}")

set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/../scripts/wine-run)
