// What the machine allows, as programs of their own beside which the program's commands are measured.
// usage: yardstick front FILE...   opens each file, reads its first 192 KiB, closes it
//        yardstick read FILE       reads a file once, directly, two requests of 4 MiB in flight
//        yardstick copy FILE OUT   the same, and writes what was read to a new file
// Ends with 0 if all of it was done.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <thread>

namespace {

constexpr std::size_t PIECE = std::size_t{4} << 20, FRONT = std::size_t{192} << 10;

std::byte* hugePages() {
    void* const memory = ::mmap(nullptr, 2 * PIECE, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) return nullptr;
    std::byte* const aligned =
        static_cast<std::byte*>(memory) + (PIECE - reinterpret_cast<std::uintptr_t>(memory) % PIECE);
    ::madvise(aligned, PIECE, MADV_HUGEPAGE);
    return aligned;
}

bool readFront(char const* name, std::byte* memory) {
    int const file = ::open(name, O_RDONLY | O_DIRECT | O_CLOEXEC);
    if (file < 0) return false;
    bool const good = ::pread(file, memory, FRONT, 0) > 0;
    ::close(file);
    return good;
}

bool readAll(char const* name, char const* copy) {
    int const file = ::open(name, O_RDONLY | O_DIRECT | O_CLOEXEC);
    int const target = copy != nullptr ? ::open(copy, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666) : -1;
    struct stat facts {};
    if (file < 0 || (copy != nullptr && target < 0) || ::fstat(file, &facts) != 0) return false;
    std::atomic<off_t> next = 0;
    std::atomic<bool> good = true;
    auto const work = [&] {
        std::byte* const memory = hugePages();
        for (off_t at = 0; good && (at = next.fetch_add(PIECE)) < facts.st_size;) {
            ssize_t const bytes = ::pread(file, memory, PIECE, at);
            if (bytes <= 0 || (target >= 0 && ::pwrite(target, memory, static_cast<std::size_t>(bytes), at) != bytes))
                good = false;
        }
    };
    std::thread other(work);
    work();
    other.join();
    ::close(file);
    if (target >= 0) ::close(target);
    return good;
}

}  // namespace

int main(int count, char** arguments) {
    if (count >= 3 && std::strcmp(arguments[1], "front") == 0) {
        std::byte* const memory = hugePages();
        for (int i = 2; i < count; ++i)
            if (!readFront(arguments[i], memory)) return 1;
        return 0;
    }
    if (count == 3 && std::strcmp(arguments[1], "read") == 0) return readAll(arguments[2], nullptr) ? 0 : 1;
    if (count == 4 && std::strcmp(arguments[1], "copy") == 0) return readAll(arguments[2], arguments[3]) ? 0 : 1;
    std::fputs("usage: yardstick front FILE... | read FILE | copy FILE OUT\n", stderr);
    return 2;
}
