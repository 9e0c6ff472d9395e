// Host files on Linux: two descriptors for each file, advisory locks, error texts, and paths that are not regular
// files.
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include "foundation/ksemaphore.h"
#include "foundation/kstring.h"
#include "io_engines.h"
#include "platform/host.h"
#include "platform/host_file.h"
#include "platform/linux/host_text.h"
#include "refusing_host.h"
#include "support/buffer.h"
#include "support/host_lacks.h"
#include "support/probe_request.h"
#include "support/scratch.h"

namespace KelvonClip::platform {
namespace {

using Ownership = HostFile::Ownership;
using test::BLOCK;
using test::Buffer;
using test::inChild;
using test::ProbeRequest;
using test::waitFor;

std::string toText(std::u16string const& text) { return KString(text).toUtf8(); }

// Waits for a request and returns its result; nothing if it was refused.
using Outcome = std::optional<std::pair<bool, std::uint32_t>>;

Outcome read(HostFile& file, std::uint64_t position, std::uint32_t length, void* buffer) {
    ProbeRequest request;
    if (!file.startRead(position, length, buffer, request)) return {};
    waitFor(request);
    return std::pair(request.failed, request.transferred);
}

Outcome write(HostFile& file, std::uint64_t position, std::uint32_t length, void const* buffer) {
    ProbeRequest request;
    if (!file.startWrite(position, length, buffer, request)) return {};
    waitFor(request);
    return std::pair(request.failed, request.transferred);
}

Outcome moved(std::uint32_t bytes) { return std::pair(false, bytes); }

// The open flags of all descriptors that this process has for `path`.
std::vector<int> flagsOfDescriptorsFor(std::filesystem::path const& path) {
    std::vector<int> flags;
    for (auto const& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        if (std::filesystem::read_symlink(entry.path(), gone) != path) continue;
        int const number = std::stoi(entry.path().filename().string());
        EXPECT_NE(::fcntl(number, F_GETFD) & FD_CLOEXEC, 0);
        flags.push_back(::fcntl(number, F_GETFL));
    }
    return flags;
}

class LinuxFileTest : public testing::TestWithParam<test::IoEngine> {
  protected:
    void SetUp() override { GetParam().use(); }
    void TearDown() override { test::ioEngines().front().use(); }

    std::u16string name(char const* file = "clip") const { return folder.file(file).toUtf16(); }
    std::filesystem::path path(char const* file = "clip") const { return folder.path / file; }

    std::unique_ptr<HostFile> open(FileAccess access) const {
        auto opened = HostFile::open(name(), access);
        EXPECT_NE(opened.file, nullptr) << toText(opened.error);
        return std::move(opened.file);
    }

    // The descriptors that one open file has.
    std::vector<int> flagsWhileOpen() const {
        auto const file = open(FileAccess::read_only);
        return flagsOfDescriptorsFor(path());
    }

    ScratchFolder folder;
};

INSTANTIATE_TEST_SUITE_P(Engines, LinuxFileTest, testing::ValuesIn(test::ioEngines()),
                         [](auto const& row) { return std::string(row.param.name); });

TEST_P(LinuxFileTest, MisalignedTransfersWork) {
    auto const file = open(FileAccess::create);
    ASSERT_TRUE(file->resize(64 * 1024));
    struct Row {
        std::uint64_t position;
        std::uint32_t length;
        std::size_t memory_offset;
    };
    for (Row const& row : {Row{0, 100, 0}, Row{1, 100, 0}, Row{0, 4096, 1}, Row{512, 512, 512}, Row{512, 512, 4},
                           Row{4095, 2, 3}, Row{4096, 4095, 0}, Row{8191, 8193, 7}, Row{0, 65536, 0}}) {
        Buffer const written(65536 + 1024, static_cast<unsigned>(row.length + row.memory_offset));
        Buffer got(65536 + 1024, 200);
        EXPECT_EQ(write(*file, row.position, row.length, written.memory + row.memory_offset), moved(row.length));
        EXPECT_EQ(read(*file, row.position, row.length, got.memory + row.memory_offset), moved(row.length));
        EXPECT_EQ(std::memcmp(got.memory + row.memory_offset, written.memory + row.memory_offset, row.length), 0)
            << row.position << '+' << row.length;
    }
}

TEST_P(LinuxFileTest, BufferedAndDirectTransfersSeeEachOther) {
    auto const file = open(FileAccess::create);
    ASSERT_TRUE(file->resize(4 * BLOCK));
    Buffer got(4 * BLOCK + 1, 9);
    for (unsigned round = 0; round < 50; ++round) {
        Buffer const direct(4 * BLOCK, round), buffered(4 * BLOCK + 1, round + 100);
        EXPECT_EQ(write(*file, 0, 4 * BLOCK, direct.memory), moved(4 * BLOCK));
        EXPECT_EQ(read(*file, 0, 4 * BLOCK, got.memory + 1), moved(4 * BLOCK));  // an odd address goes buffered
        EXPECT_EQ(std::memcmp(got.memory + 1, direct.memory, 4 * BLOCK), 0);

        EXPECT_EQ(write(*file, 0, 4 * BLOCK, buffered.memory + 1), moved(4 * BLOCK));
        EXPECT_EQ(read(*file, 0, 4 * BLOCK, got.memory), moved(4 * BLOCK));
        EXPECT_EQ(std::memcmp(got.memory, buffered.memory + 1, 4 * BLOCK), 0);

        // A few bytes in the middle, then the whole block directly.
        EXPECT_EQ(write(*file, BLOCK + 10, 20, direct.memory), moved(20));
        EXPECT_EQ(read(*file, BLOCK, BLOCK, got.memory), moved(BLOCK));
        EXPECT_EQ(std::memcmp(got.memory + 10, direct.memory, 20), 0);
        EXPECT_EQ(std::memcmp(got.memory + 30, buffered.memory + 1 + BLOCK + 30, BLOCK - 30), 0);
    }
}

TEST_P(LinuxFileTest, DirectReadThatCrossesAnOddEndGetsEveryByte) {
    test::makeFile(path(), 3 * BLOCK + 1000);
    auto const file = open(FileAccess::read_only);
    Buffer got(8 * BLOCK, 9);
    EXPECT_EQ(read(*file, 0, 8 * BLOCK, got.memory), moved(3 * BLOCK + 1000));
    EXPECT_EQ(std::memcmp(got.memory, Buffer(3 * BLOCK + 1000).memory, 3 * BLOCK + 1000), 0);
    EXPECT_EQ(read(*file, 3 * BLOCK, BLOCK, got.memory), moved(1000));
}

TEST_P(LinuxFileTest, DescriptorsAreClosedOnExecAndWithTheObject) {
    auto file = open(FileAccess::create);
    auto const flags = flagsOfDescriptorsFor(path());
    ASSERT_GE(flags.size(), 1U);
    EXPECT_LE(flags.size(), 2U);
    for (int flag : flags)
        EXPECT_EQ(flag & (O_NONBLOCK | O_APPEND), 0);
    file.reset();
    EXPECT_TRUE(flagsOfDescriptorsFor(path()).empty());
}

// A file on a memory file system beside those on disk.
class MemoryFileTest : public LinuxFileTest {
  protected:
    void SetUp() override {
        LinuxFileTest::SetUp();
        REQUIRE_OF_HOST(std::filesystem::is_directory(PLACE), "memory-files");
        memory_folder = std::make_unique<ScratchFolder>(PLACE);
        auto opened = HostFile::open(memory_folder->file("clip").toUtf16(), FileAccess::create);
        ASSERT_NE(opened.file, nullptr) << toText(opened.error);
        in_memory = std::move(opened.file);
    }

    static constexpr char const* PLACE = "/dev/shm";
    std::unique_ptr<ScratchFolder> memory_folder;
    std::unique_ptr<HostFile> in_memory;
};

INSTANTIATE_TEST_SUITE_P(Engines, MemoryFileTest, testing::ValuesIn(test::ioEngines()),
                         [](auto const& row) { return std::string(row.param.name); });

TEST_P(MemoryFileTest, TakesEveryPositionLengthAndAddress) {
    Buffer const written(16 * BLOCK, 1);
    Buffer got(16 * BLOCK, 2);
    EXPECT_EQ(write(*in_memory, BLOCK, 16 * BLOCK, written.memory), moved(16 * BLOCK));
    EXPECT_EQ(read(*in_memory, BLOCK, 16 * BLOCK, got.memory), moved(16 * BLOCK));
    EXPECT_EQ(got, written);
    EXPECT_EQ(write(*in_memory, 3, 100, written.memory), moved(100));
    EXPECT_EQ(read(*in_memory, 3, 100, got.memory + 1), moved(100));
    EXPECT_EQ(std::memcmp(got.memory + 1, written.memory, 100), 0);
    EXPECT_EQ(read(*in_memory, 17 * BLOCK, BLOCK, got.memory), Outcome(std::pair(true, 0U)));
}

// With both engines no transfer is in progress when the wait checks its time-out.
TEST_P(MemoryFileTest, IsMovedByTheThreadThatWaits) {
    Buffer const written(16 * BLOCK, 1);
    Buffer got(16 * BLOCK, 2);
    KSemaphore done(0);
    ProbeRequest first, last([&done] { done.post(); });
    ASSERT_TRUE(in_memory->startWrite(0, 16 * BLOCK, written.memory, first));
    ASSERT_TRUE(in_memory->startRead(0, 16 * BLOCK, got.memory, last));
    EXPECT_TRUE(done.wait(1, 0));
    EXPECT_EQ(first.completions, 1);
    EXPECT_EQ(got, written);
}

TEST_P(MemoryFileTest, CompletesBesideFilesOnDiskInOneWait) {
    auto const on_disk = open(FileAccess::create);
    constexpr std::uint32_t EACH = 40;
    Buffer const written(EACH * BLOCK, 1);
    KSemaphore done(0);
    std::uint32_t missing = 2 * EACH;
    std::vector<std::unique_ptr<ProbeRequest>> requests;
    for (std::uint32_t block = 0; block < EACH; ++block) {
        for (HostFile* file : {in_memory.get(), on_disk.get()}) {
            requests.push_back(std::make_unique<ProbeRequest>([&] {
                if (--missing == 0) done.post();
            }));
            ASSERT_TRUE(file->startWrite(block * BLOCK, BLOCK, written.memory + block * BLOCK, *requests.back()));
        }
    }
    EXPECT_TRUE(done.wait());
    for (HostFile* file : {in_memory.get(), on_disk.get()}) {
        Buffer got(EACH * BLOCK, 2);
        EXPECT_EQ(read(*file, 0, EACH * BLOCK, got.memory), moved(EACH * BLOCK));
        EXPECT_EQ(got, written);
    }
}

// A mapping of `size` bytes that maps the same few pages again and again.
class FoldedMemory {
  public:
    explicit FoldedMemory(std::size_t size) : bytes(size) {
        constexpr std::size_t FOLD = 64 << 20;
        int const pages = ::memfd_create("folded", MFD_CLOEXEC);
        bool good = pages >= 0 && ::ftruncate(pages, FOLD) == 0;
        memory = static_cast<std::byte*>(
            ::mmap(nullptr, bytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0));
        good = good && memory != MAP_FAILED;
        for (std::size_t at = 0; good && at < bytes; at += FOLD) {
            good = ::mmap(memory + at, std::min(FOLD, bytes - at), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED,
                          pages, 0) != MAP_FAILED;
        }
        if (pages >= 0) ::close(pages);
        if (!good) throw std::runtime_error("no folded memory");
    }
    ~FoldedMemory() { ::munmap(memory, bytes); }
    FoldedMemory(FoldedMemory const&) = delete;
    FoldedMemory& operator=(FoldedMemory const&) = delete;

    std::byte* memory;
    std::size_t bytes;
};

TEST_P(LinuxFileTest, RequestsLongerThanTheHostMovesAtOnceAreFinished) {
    // Reads more than 2 GiB from a file with a single hole, except for the last block.
    constexpr std::uint32_t LENGTH = (std::uint32_t{1} << 31) + 5 * BLOCK;
    auto const file = open(FileAccess::create);
    Buffer const last(BLOCK, 77);
    ASSERT_EQ(write(*file, LENGTH - BLOCK, BLOCK, last.memory), moved(BLOCK));
    FoldedMemory const folded(LENGTH);
    EXPECT_EQ(read(*file, 0, LENGTH, folded.memory), moved(LENGTH));
    EXPECT_EQ(std::memcmp(folded.memory + LENGTH - BLOCK, last.memory, BLOCK), 0);
}

TEST_P(LinuxFileTest, LongestRequestOfAllEndsWithTheFile) {
    constexpr std::uint32_t LONGEST = 0xFFFFFFFF;
    test::makeFile(path(), 1000);
    auto const file = open(FileAccess::read_only);
    FoldedMemory const folded(std::size_t{LONGEST} + 1);
    EXPECT_EQ(read(*file, 0, LONGEST, folded.memory), moved(1000));
    EXPECT_EQ(std::memcmp(folded.memory, Buffer(1000).memory, 1000), 0);
    // An aligned length. The contents of the buffer after the bytes that were read are unspecified.
    EXPECT_EQ(read(*file, 0, LONGEST - BLOCK + 1, folded.memory), moved(1000));
}

bool limitFileSize(rlim_t bytes) {
    struct rlimit const limit{bytes, bytes};
    return ::setrlimit(RLIMIT_FSIZE, &limit) == 0;
}

// The limit is lowered after the file was longer once, so that the host meets it and not this library.
TEST_P(LinuxFileTest, WriteThatTheHostCutsShortAndThenRefusesHasFailed) {
    test::IoEngine const engine = GetParam();
    EXPECT_TRUE(inChild([&] {
        engine.use();
        std::signal(SIGXFSZ, SIG_IGN);
        auto const opened = HostFile::open(name(), FileAccess::create);
        if (!opened.file->resize(32 * BLOCK) || !opened.file->resize(0) || !limitFileSize(16 * BLOCK)) return false;
        Buffer const written(32 * BLOCK);
        bool const cut = write(*opened.file, 0, 32 * BLOCK, written.memory) == Outcome(std::pair(true, 16U * BLOCK));
        bool const usable = write(*opened.file, 0, 16 * BLOCK, written.memory) == moved(16 * BLOCK);
        return cut && usable;
    }));
    EXPECT_EQ(std::filesystem::file_size(path()), 16U * BLOCK);
}

// What goes past the limit would end the process.
TEST_P(LinuxFileTest, WhatGoesPastTheProcessLimitIsRefusedAndTheProcessLives) {
    test::IoEngine const engine = GetParam();
    EXPECT_TRUE(inChild([&] {
        engine.use();
        if (!limitFileSize(16 * BLOCK)) return false;
        auto const opened = HostFile::open(name(), FileAccess::create);
        Buffer const written(32 * BLOCK);
        for (std::uint64_t const position : {8u, 16u, 1000u}) {
            if (write(*opened.file, position * BLOCK, 16 * BLOCK, written.memory).has_value()) return false;
            if (opened.file->resize((position + 16) * BLOCK)) return false;
        }
        return write(*opened.file, 0, 16 * BLOCK, written.memory) == moved(16 * BLOCK) &&
               opened.file->resize(16 * BLOCK) && !opened.file->resize(16 * BLOCK + 1);
    }));
    EXPECT_EQ(std::filesystem::file_size(path()), 16U * BLOCK);
}

TEST_P(LinuxFileTest, OpeningFailsWhenThereIsNoDescriptorForDirectTransfers) {
    test::makeFile(path(), BLOCK);
    if (flagsWhileOpen().size() < 2) GTEST_SKIP() << "no direct transfers here";
    for (FileAccess access : {FileAccess::read_only, FileAccess::read_write, FileAccess::create}) {
        EXPECT_TRUE(inChild([&] {
            int const next = ::dup(0);
            ::close(next);
            struct rlimit const one_left{static_cast<rlim_t>(next) + 1, static_cast<rlim_t>(next) + 1};
            if (::setrlimit(RLIMIT_NOFILE, &one_left) != 0) return false;
            auto const opened = HostFile::open(name(), access);
            return opened.file == nullptr && toText(opened.error) == std::strerror(EMFILE) &&
                   ::dup(0) == next;  // nothing is left open
        }));
    }
}

// The flags with which a file is opened for direct transfers.
int directFlags(FileAccess access) {
    return (access == FileAccess::read_only ? O_RDONLY : O_RDWR) | O_DIRECT | O_CLOEXEC | O_NOCTTY;
}

TEST_P(LinuxFileTest, AFileSystemWithoutDirectTransfersIsServedBuffered) {
    test::makeFile(path(), BLOCK);
    for (int error : {EINVAL, EOPNOTSUPP}) {
        for (FileAccess access : {FileAccess::read_only, FileAccess::read_write, FileAccess::create}) {
            EXPECT_TRUE(inChild([&] {
                test::ArgumentIs const flags{2, static_cast<std::uint32_t>(directFlags(access))};
                if (!test::forbid(SYS_openat, error, flags)) return false;
                auto const opened = HostFile::open(name(), access);
                Buffer got(BLOCK, 4);
                return opened.file != nullptr && flagsOfDescriptorsFor(path()).size() == 1 &&
                       read(*opened.file, 0, BLOCK, got.memory) == moved(BLOCK) && got == Buffer(BLOCK);
            })) << error;
        }
    }
}

TEST_P(LinuxFileTest, AnyOtherErrorOfTheDirectOpenIsTheErrorOfOpening) {
    test::makeFile(path(), BLOCK);
    for (int error : {EACCES, EPERM, EIO, EMFILE, ENFILE, ENOMEM, ENOENT, ETXTBSY}) {
        for (FileAccess access : {FileAccess::read_only, FileAccess::read_write, FileAccess::create}) {
            EXPECT_TRUE(inChild([&] {
                test::ArgumentIs const flags{2, static_cast<std::uint32_t>(directFlags(access))};
                if (!test::forbid(SYS_openat, error, flags)) return false;
                auto const opened = HostFile::open(name(), access);
                return opened.file == nullptr && toText(opened.error) == std::strerror(error) &&
                       flagsOfDescriptorsFor(path()).empty();
            })) << error;
        }
    }
}

// Both descriptors are those of one file, whichever of them it is.
TEST_P(LinuxFileTest, AFileThatIsReplacedWhileItIsOpenedIsOpened) {
    auto const replace = [this](unsigned n) {
        std::ofstream(path("new"), std::ios::binary) << std::string(BLOCK, static_cast<char>(n));
        std::filesystem::rename(path("new"), path());
    };
    replace(0);
    std::size_t const descriptors = flagsWhileOpen().size();
    std::atomic<bool> enough{false};
    std::thread replacing([&] {
        for (unsigned n = 1; !enough; ++n) {
            replace(n);
            std::this_thread::sleep_for(std::chrono::microseconds(50));
        }
    });
    for (int n = 0; n < 100; ++n) {
        auto const opened = HostFile::open(name(), FileAccess::read_only);
        EXPECT_NE(opened.file, nullptr) << toText(opened.error);
        if (opened.file == nullptr) continue;
        Buffer direct(BLOCK, 1), buffered(BLOCK + 1, 1);
        EXPECT_EQ(read(*opened.file, 0, BLOCK, direct.memory), moved(BLOCK));
        EXPECT_EQ(read(*opened.file, 0, BLOCK, buffered.memory + 1), moved(BLOCK));
        EXPECT_EQ(std::memcmp(direct.memory, buffered.memory + 1, BLOCK), 0);
    }
    enough = true;
    replacing.join();
    EXPECT_EQ(flagsWhileOpen().size(), descriptors);
}

TEST_P(LinuxFileTest, ConflictOfLocksSaysWhoIsInTheWay) {
    std::string const created = "The file is in use: whoever created it has it open still";
    std::string const opened = "The file is in use: it can't be created while it is open elsewhere";
    {
        auto const creator = open(FileAccess::create);
        EXPECT_EQ(toText(HostFile::open(name(), FileAccess::read_only).error), created);
        EXPECT_EQ(toText(HostFile::open(name(), FileAccess::read_write).error), created);
        EXPECT_EQ(toText(HostFile::open(name(), FileAccess::create).error), opened);
    }
    auto const opener = open(FileAccess::read_only);
    EXPECT_EQ(toText(HostFile::open(name(), FileAccess::create).error), opened);
}

TEST_P(LinuxFileTest, WhoLooksAtAFileForAMomentDoesNotStopItsCreation) {
    std::atomic<bool> enough{false};
    std::thread watcher([&] {
        while (!enough)
            (void)HostFile::open(name(), FileAccess::read_only);
    });
    int failed = 0;
    for (int n = 0; n < 200; ++n)
        if (HostFile::open(name(), FileAccess::create).file == nullptr) ++failed;
    enough = true;
    watcher.join();
    EXPECT_EQ(failed, 0);
}

TEST_P(LinuxFileTest, TheFirstThatOwnsWritingKeepsTheOthersFromItUntilItIsClosed) {
    test::makeFile(path(), BLOCK);
    auto first = open(FileAccess::read_write);
    auto const second = open(FileAccess::read_write);
    EXPECT_EQ(first->ownWriting(), Ownership::obtained);
    EXPECT_EQ(first->ownWriting(), Ownership::obtained) << "it has it";
    EXPECT_EQ(second->ownWriting(), Ownership::of_another);
    EXPECT_FALSE(inChild(
        [&] { return HostFile::open(name(), FileAccess::read_write).file->ownWriting() == Ownership::obtained; }));
    first.reset();
    EXPECT_EQ(second->ownWriting(), Ownership::obtained);
}

TEST_P(LinuxFileTest, LocksHoldBetweenProcesses) {
    auto creator = open(FileAccess::create);
    auto const can_open = [this](FileAccess access) {
        return inChild([&] { return HostFile::open(name(), access).file != nullptr; });
    };
    EXPECT_FALSE(can_open(FileAccess::read_only));
    EXPECT_FALSE(can_open(FileAccess::create));
    creator.reset();
    auto const opener = open(FileAccess::read_write);
    EXPECT_TRUE(can_open(FileAccess::read_only));
    EXPECT_TRUE(can_open(FileAccess::read_write));
    EXPECT_FALSE(can_open(FileAccess::create));
}

TEST_P(LinuxFileTest, FailedCreationLeavesTheOthersFileAsItWas) {
    test::makeFile(path(), BLOCK);
    auto const opener = open(FileAccess::read_only);
    EXPECT_EQ(HostFile::open(name(), FileAccess::create).file, nullptr);
    EXPECT_EQ(std::filesystem::file_size(path()), BLOCK);
    EXPECT_LE(flagsOfDescriptorsFor(path()).size(), 2U);
}

TEST_P(LinuxFileTest, OnlyRegularFilesAreFiles) {
    ASSERT_EQ(::mkfifo(path("pipe").c_str(), 0600), 0);
    int const socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path("socket").c_str(), sizeof address.sun_path - 1);
    ASSERT_EQ(::bind(socket, reinterpret_cast<sockaddr const*>(&address), sizeof address), 0);
    ::close(socket);
    std::filesystem::create_symlink("/dev/null", path("device"));
    for (FileAccess access : {FileAccess::read_only, FileAccess::read_write, FileAccess::create}) {
        for (char const* kind : {"pipe", "socket", "device"}) {
            auto const opened = HostFile::open(name(kind), access);
            EXPECT_EQ(opened.file, nullptr);
            EXPECT_EQ(toText(opened.error), "Not a regular file") << kind;
        }
        auto const directory = HostFile::open(folder.file("").toUtf16(), access);
        EXPECT_EQ(directory.file, nullptr);
        EXPECT_EQ(toText(directory.error), std::strerror(EISDIR));
    }
}

TEST_P(LinuxFileTest, LinksLeadToTheFile) {
    test::makeFile(path(), BLOCK);
    std::filesystem::create_symlink(path(), path("link"));
    auto const opened = HostFile::open(name("link"), FileAccess::read_only);
    ASSERT_NE(opened.file, nullptr);
    Buffer got(BLOCK, 4);
    EXPECT_EQ(read(*opened.file, 0, BLOCK, got.memory), moved(BLOCK));
    EXPECT_EQ(got, Buffer(BLOCK));
}

TEST(HostText, OpenErrorsAreTheHostsTexts) {
    ScratchFolder const folder;
    EXPECT_EQ(toText(HostFile::open(folder.file("missing").toUtf16(), FileAccess::read_only).error),
              std::strerror(ENOENT));
    test::makeFile(folder.path / "file", 1);
    EXPECT_EQ(toText(HostFile::open(folder.file("file/below").toUtf16(), FileAccess::create).error),
              std::strerror(ENOTDIR));
    EXPECT_EQ(toText(HostFile::open(folder.file(std::string(300, 'x').c_str()).toUtf16(), FileAccess::create).error),
              std::strerror(ENAMETOOLONG));
}

TEST(HostText, LastErrorIsTheThreadsOwn) {
    errno = 0;
    EXPECT_EQ(lastErrorText(), u"");
    errno = ENOENT;
    EXPECT_EQ(lastErrorText(), u"No such file or directory");
    EXPECT_EQ(toText(hostErrorText(99999)), "Unknown error 99999");
}

TEST(HostText, FileNamesAreUtf8WithPairsCombined) {
    struct Row {
        std::u16string name;
        std::string bytes;
    };
    for (Row const& row :
         {Row{u"", ""}, Row{u"a/b.clip", "a/b.clip"}, Row{u"\u007f\u0080", "\x7f\xc2\x80"},
          Row{u"\u07ff\u0800\uffff", "\xdf\xbf\xe0\xa0\x80\xef\xbf\xbf"}, Row{u"\U00010000", "\xf0\x90\x80\x80"},
          Row{u"\U0001F3AC", "\xf0\x9f\x8e\xac"}, Row{u"\U0010FFFF", "\xf4\x8f\xbf\xbf"},
          // Lone surrogates: a lead at the end, a trail at the start, two leads, a pair in the wrong order.
          Row{{u'a', 0xD83C}, "a\xed\xa0\xbc"},
          Row{{0xDFAC, u'a'},
              "\xed\xbe\xac"
              "a"},
          Row{{0xD83C, 0xD83C, 0xDFAC}, "\xed\xa0\xbc\xf0\x9f\x8e\xac"},
          Row{{0xDFAC, 0xD83C}, "\xed\xbe\xac\xed\xa0\xbc"}}) {
        EXPECT_EQ(hostFileName(row.name), row.bytes);
    }
}

}  // namespace
}  // namespace KelvonClip::platform
