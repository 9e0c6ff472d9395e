// Every way in which the library gets memory from this host, replaced for a whole test program. For one source file of
// the program, which is linked with --wrap=mmap64.
#pragma once

#include <cerrno>
#include <cstddef>

#include <sys/mman.h>

#include "support/replaced_operators.h"

extern "C" void* __real_mmap64(void* address, std::size_t bytes, int protection, int flags, int file, off_t offset);
extern "C" void* __wrap_mmap64(void* address, std::size_t bytes, int protection, int flags, int file, off_t offset) {
    if (KelvonClip::test::Memory::allows()) {
        KelvonClip::test::Memory::count(bytes);
        return __real_mmap64(address, bytes, protection, flags, file, offset);
    }
    errno = ENOMEM;
    return MAP_FAILED;
}
