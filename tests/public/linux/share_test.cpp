// Letting others in while somebody else takes the file: the kernel releases a lock before it gives one of another kind.
#include <kelvonclip/kelvon_clip.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <system_error>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include "public/public_support.h"
#include "support/scratch_path.h"

namespace KelvonClip {
namespace {

// Releases the locks that this process holds on the file.
void unlockAll(std::filesystem::path const& path) {
    for (auto const& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        if (std::filesystem::read_symlink(entry.path(), gone) == path)
            ::flock(std::stoi(entry.path().filename()), LOCK_UN);
    }
}

TEST(ClipShare, SaysThatTheFileIsInUseAsLongAsSomebodyElseHasIt) {
    ScratchPath const folder;
    std::filesystem::path const path = std::filesystem::canonical(folder.path) / "recording.clip";
    unsigned int const clip = test::createClip(path.wstring(), {VideoStandard::s1080i_50, 0, 0, 1, 2, false});
    int const other = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_GE(other, 0);
    ASSERT_NE(::flock(other, LOCK_EX | LOCK_NB), 0) << "the library holds the lock";

    unlockAll(path);
    ASSERT_EQ(::flock(other, LOCK_EX | LOCK_NB), 0);
    EXPECT_SAYS(clip_share(clip), "The file is in use");

    ::close(other);
    EXPECT_OK(clip_share(clip));
    clip_close(clip);
}

}  // namespace
}  // namespace KelvonClip
