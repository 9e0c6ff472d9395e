// Loading and unloading a library that uses files: nothing is left behind, and what its static objects write at the end
// is in the file.
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <thread>

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/buffer.h"
#include "support/latch.h"
#include "support/scratch.h"

namespace KelvonClip::platform {
namespace {

std::size_t entriesOf(char const* folder) {
    std::filesystem::directory_iterator const entries(folder);
    return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

// Threads of the program, without the kernel's worker threads for its rings.
std::size_t threadsOfTheProgram() {
    std::size_t count = 0;
    for (auto const& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string name;
        std::getline(std::ifstream(task.path() / "comm"), name);
        if (name.rfind("iou-", 0) != 0) ++count;
    }
    return count;
}

// Threads that have been joined disappear from the list a moment later; those that have not never do. At most, because
// `expected` may have been counted while such a thread was still in the list.
bool threadsComeDownTo(std::size_t expected) {
    auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (threadsOfTheProgram() > expected) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::yield();
    }
    return true;
}

bool mapped(std::string const& library) {
    std::ifstream maps("/proc/self/maps");
    std::string line;
    while (std::getline(maps, line)) {
        if (line.find(library) != std::string::npos) return true;
    }
    return false;
}

// The registry of open files is never destroyed, because files may be used until the end. It is excluded here, so that
// leak checkers still find other leaks.
constexpr int MOST_MODULES = 8;
void* kept_registries[MOST_MODULES];
int modules_loaded = 0;

struct Module {
    Module() : handle(::dlopen(UNLOAD_MODULE, RTLD_NOW | RTLD_LOCAL)) {
        if (handle == nullptr) throw std::runtime_error(::dlerror());
        use_file = reinterpret_cast<bool (*)(char const*, bool)>(::dlsym(handle, "useFile"));
        auto const kept_registry = reinterpret_cast<void* (*)()>(::dlsym(handle, "keptRegistry"));
        kept_registries[modules_loaded++ % MOST_MODULES] = kept_registry();
        write_at_the_end = reinterpret_cast<void (*)(char const*)>(::dlsym(handle, "writeAtTheEnd"));
    }
    void* handle;
    bool (*use_file)(char const* path, bool in_background);
    void (*write_at_the_end)(char const* path);
};

TEST(Unload, LeavesNoDescriptorThreadOrMemoryBehindWhileAThreadThatUsedItLivesOn) {
    ScratchFolder const folder;
    std::string const name = std::filesystem::path(UNLOAD_MODULE).filename().string();
    std::thread([] {}).join();  // a sanitizer starts a thread of its own with the first
    for (int round = 0; round < 3; ++round) {
        std::size_t const descriptors = entriesOf("/proc/self/fd");
        std::size_t const threads = threadsOfTheProgram();
        Module const module;
        ASSERT_TRUE(mapped(name));
        EXPECT_TRUE(module.use_file((folder.path / "main").c_str(), false));
        EXPECT_TRUE(module.use_file((folder.path / "pool").c_str(), true));
        std::thread([&] { EXPECT_TRUE(module.use_file((folder.path / "short").c_str(), false)); }).join();
        test::Latch used(1), unloaded(1);
        std::thread idle([&] {
            EXPECT_TRUE(module.use_file((folder.path / "idle").c_str(), false));
            used.count_down();
            unloaded.wait();
        });  // ends after the library: nothing may call into it then
        used.wait();
        auto const last = folder.path / ("last" + std::to_string(round));
        module.write_at_the_end(last.c_str());

        ASSERT_EQ(::dlclose(module.handle), 0);
        EXPECT_FALSE(mapped(name));
        EXPECT_EQ(entriesOf("/proc/self/fd"), descriptors);
        EXPECT_TRUE(threadsComeDownTo(threads + 1)) << "the idle thread, none of the pool's";
        EXPECT_EQ(std::filesystem::file_size(last), 4 * test::BLOCK);
        unloaded.count_down();
        idle.join();
    }
}

TEST(Unload, StaticObjectsWriteAtTheEndOfTheProcess) {
    ScratchFolder const folder;
    auto const last = folder.path / "last";
    pid_t const child = ::fork();
    if (child == 0) {
        Module const module;
        bool const used = module.use_file((folder.path / "used").c_str(), false) &&
                          module.use_file((folder.path / "pool").c_str(), true);
        module.write_at_the_end(last.c_str());
        std::exit(used ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    EXPECT_EQ(std::filesystem::file_size(last), 4 * test::BLOCK);
}

}  // namespace
}  // namespace KelvonClip::platform
