// A small library that a test loads and unloads. It contains this library's objects, uses files from several threads,
// and writes a file when its static objects are destroyed, as open clips do.
#include <cstdlib>
#include <string>

#include "foundation/ksemaphore.h"
#include "platform/task_pool.h"
#include "support/buffer.h"
#include "vfile/vfilefile.h"

namespace {

using namespace KelvonClip;
using test::BLOCK;
using test::Buffer;

bool writeAndReadBack(char const* path) {
    auto const opened = VFileFile::create(path);
    if (opened.file == nullptr) return false;
    Buffer const written(4 * BLOCK);
    Buffer read(4 * BLOCK, 1);
    return opened.file->writeSync(0, 4 * BLOCK, written.memory).empty() &&
           opened.file->readSync(0, 4 * BLOCK, read.memory).empty() && read == written;
}

struct WritesAtTheEnd {
    ~WritesAtTheEnd() {
        if (!path.empty() && !writeAndReadBack(path.c_str())) std::abort();
    }
    std::string path;
};
WritesAtTheEnd at_the_end;

}  // namespace

// Writes a file and reads it, on the calling thread or on the task pool.
extern "C" [[gnu::visibility("default")]] bool useFile(char const* path, bool in_background) {
    if (!in_background) return writeAndReadBack(path);
    bool good = false;
    KSemaphore done(0);
    platform::runInBackground([&] {
        good = writeAndReadBack(path);
        done.post();
    });
    done.wait();
    return good;
}

extern "C" [[gnu::visibility("default")]] void writeAtTheEnd(char const* path) { at_the_end.path = path; }

// Memory that the library leaks on purpose.
extern "C" [[gnu::visibility("default")]] void* keptRegistry() { return &openHostFiles(); }
