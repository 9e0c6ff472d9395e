// Unloading the library with clips open. The test program is linked with the library, so it loads a copy of the file.

#include <filesystem>
#include <stdexcept>
#include <string>

#include <dlfcn.h>

#include "public/public_support.h"
#include "support/clip_image.h"
#include "support/scratch_path.h"

// Of the leak checker, where the build has one.
extern "C" {
[[gnu::weak]] void __lsan_disable();
[[gnu::weak]] void __lsan_enable();
}

namespace KelvonClip {
namespace {

using namespace test;

// The library's registries are never destroyed, on purpose: other threads may be using them when static objects are
// destroyed. An unloaded copy leaks them, which a leak checker must not report here.
struct KeptRegistries {
    KeptRegistries() {
        if (__lsan_disable != nullptr) __lsan_disable();
    }
    ~KeptRegistries() {
        if (__lsan_enable != nullptr) __lsan_enable();
    }
};

struct LoadedCopy {
    explicit LoadedCopy(std::filesystem::path const& folder) {
        Dl_info library;
        if (::dladdr(reinterpret_cast<void*>(&clip_close), &library) == 0) throw std::runtime_error("no library");
        auto const copy = folder / "copy.so";
        std::filesystem::copy_file(library.dli_fname, copy, std::filesystem::copy_options::overwrite_existing);
        handle = ::dlopen(copy.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (handle == nullptr) throw std::runtime_error(::dlerror());
    }
    template <class Function>
    Function* find(Function*, char const* decorated) {
        void* const symbol = ::dlsym(handle, decorated);
        if (symbol == nullptr) throw std::runtime_error(decorated);
        return reinterpret_cast<Function*>(symbol);
    }
    void* handle;
};

TEST(UnloadClip, ClipsThatAreOpenAreWrittenBack) {
    ScratchPath folder;
    auto const name = folder.name("clip");
    clip_close(createClip(name, {VideoStandard::s1080i_50, 0, 0, 1, 2, false}));
    std::string const unit = patternBytes(8192, 5);
    for (unsigned int round = 0; round < 3; ++round) {
        KeptRegistries const kept;
        LoadedCopy library(folder.path);
        auto* const open = library.find(&clip_open_rw, "_ZN10KelvonClip12clip_open_rwEPKwPj");
        auto* const get_track = library.find(&clip_get_track, "_ZN10KelvonClip14clip_get_trackEjj");
        auto* const write = library.find(&track_write, "_ZN10KelvonClip11track_writeEjjPKvj");
        auto* const length = library.find(&track_length_in_units, "_ZN10KelvonClip21track_length_in_unitsEj");
        unsigned int clip = 0;
        ASSERT_OK(open(name.c_str(), &clip));
        EXPECT_EQ(clip, 1u) << "a library of its own";
        unsigned int const track = get_track(clip, 0);
        EXPECT_EQ(length(track), round) << "what the last round recorded is there";
        ASSERT_OK(write(track, round, unit.data(), 8192));
        ASSERT_EQ(::dlclose(library.handle), 0);
        EXPECT_EQ(::dlopen((folder.path / "copy.so").c_str(), RTLD_NOW | RTLD_NOLOAD), nullptr) << "really unloaded";
    }
    unsigned int clip = 0;
    ASSERT_OK(clip_open(name.c_str(), &clip));
    std::string back(8192, '\0');
    ASSERT_EQ(track_length_in_units(clip_get_track(clip, 0)), 3u);
    for (unsigned int n = 0; n < 3; ++n) {
        ASSERT_OK(track_read(clip_get_track(clip, 0), n, back.data()));
        EXPECT_EQ(back, unit);
    }
    clip_close(clip);
}

}  // namespace
}  // namespace KelvonClip
