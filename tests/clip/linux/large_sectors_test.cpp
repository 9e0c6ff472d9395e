// Clips on a disk whose sectors are larger than the extents of a clip: a loop device with sectors of 4096 bytes.
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/loop.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "io_engines.h"
#include "own_mounts.h"
#include "refusing_host.h"
#include "support/scratch_path.h"
#include "support/small_units.h"

namespace KelvonClip {
namespace {

using namespace test;

constexpr std::uint32_t SECTOR = 4096;

// Attaches the file to a free loop device, which is freed with its last user. Gives its descriptor, or -1.
int attachLoopDevice(std::filesystem::path const& backing, std::string& device) {
    int const control = ::open("/dev/loop-control", O_RDWR | O_CLOEXEC), file = ::open(backing.c_str(), O_RDWR);
    int loop = -1;
    // Somebody else may take the free one first.
    for (int attempt = 0; control >= 0 && file >= 0 && loop < 0 && attempt < 10; ++attempt) {
        int const number = ::ioctl(control, LOOP_CTL_GET_FREE);
        if (number < 0) break;
        device = "/dev/loop" + std::to_string(number);
        loop = ::open(device.c_str(), O_RDWR | O_CLOEXEC);
        if (loop < 0) break;
        loop_config config{};
        config.fd = static_cast<std::uint32_t>(file);
        config.block_size = SECTOR;
        config.info.lo_flags = LO_FLAGS_AUTOCLEAR;
        if (::ioctl(loop, LOOP_CONFIGURE, &config) == 0) break;
        bool const taken = errno == EBUSY;
        ::close(loop);
        loop = -1;
        if (!taken) break;
    }
    for (int opened : {control, file})
        if (opened >= 0) ::close(opened);
    return loop;
}

bool makeFileSystem(std::string const& device) {
    char const* const command[] = {"mkfs.ext4", "-q", "-F", device.c_str(), nullptr};
    pid_t child = 0;
    if (::posix_spawnp(&child, command[0], nullptr, nullptr, const_cast<char**>(command), environ) != 0) return false;
    int status = -1;
    return ::waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

class LargeSectors : public testing::TestWithParam<IoEngine> {
  protected:
    void SetUp() override {
        GetParam().use();
        auto const backing = outside.path / "disk";
        std::ofstream(backing).close();
        std::filesystem::resize_file(backing, 64 << 20);
        std::string device;
        bool mounted = false;
        if (enterOwnMounts()) {
            if (int const loop = attachLoopDevice(backing, device); loop >= 0) {
                mounted = makeFileSystem(device) &&
                          ::mount(device.c_str(), disk.path.c_str(), "ext4", MS_NOSUID | MS_NODEV, "") == 0;
                ::close(loop);
            }
        }
        // Not a failure: containers commonly refuse loop devices and mounts.
        if (!mounted) GTEST_SKIP() << "this host lacks loop devices";
    }
    void TearDown() override {
        (void)::umount2(disk.path.c_str(), 0);
        ioEngines().front().use();
    }

    ScratchPath outside, disk;
};
INSTANTIATE_TEST_SUITE_P(Engines, LargeSectors, testing::ValuesIn(ioEngines()),
                         [](auto const& row) { return std::string(row.param.name); });

// What the tests below are about.
TEST_P(LargeSectors, TheHostRefusesSmallerDirectTransfers) {
    auto const path = disk.path / "file";
    std::ofstream(path) << std::string(2 * SECTOR, 'x') << std::flush;
    int const direct = ::open(path.c_str(), O_RDONLY | O_DIRECT | O_CLOEXEC);
    ASSERT_GE(direct, 0);
    AlignedUnit read(SECTOR);
    EXPECT_EQ(::pread(direct, read.data(), SECTOR, 0), static_cast<ssize_t>(SECTOR));
    EXPECT_EQ(::pread(direct, read.data(), 512, 512), -1);
    EXPECT_EQ(errno, EINVAL);
    ::close(direct);
}

TEST_P(LargeSectors, UnitsOf512BytesAreRecordedAndFollowed) { recordAndFollowSmallUnits(disk); }

// Older kernels do not tell which alignment they want; their refusal does.
TEST_P(LargeSectors, TheSameOnAKernelThatDoesNotTellTheAlignment) {
    IoEngine const engine = GetParam();
    EXPECT_TRUE(inChild([&] {
        engine.use();
        if (!forbid(__NR_statx, ENOSYS)) return false;
        recordAndFollowSmallUnits(disk);
        return !HasFailure();
    }));
}

}  // namespace
}  // namespace KelvonClip
