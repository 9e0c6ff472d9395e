// Host files on Windows: names, sharing, sector alignment, and when completions run.
#include "platform/host_file.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/host.h"
#include "support/child.h"
#include "support/scratch.h"
#include "support/windows/windows_rules.h"

namespace KelvonClip::platform {
namespace {

using test::failNextOpenWith;
using test::SECTOR_SIZE;
using test::setSectorSize;
using test::transferLater;

// A sector-aligned buffer.
struct Buffer {
    explicit Buffer(std::size_t length, int fill = 0)
        : size(static_cast<std::uint32_t>(length)),
          bytes(static_cast<unsigned char*>(::operator new (length, std::align_val_t{DIRECT_ALIGNMENT}))) {
        std::memset(bytes, fill, length);
    }
    ~Buffer() { ::operator delete (bytes, std::align_val_t{DIRECT_ALIGNMENT}); }
    Buffer(Buffer const&) = delete;
    Buffer& operator=(Buffer const&) = delete;

    std::uint32_t const size;
    unsigned char* const bytes;
};

struct Outcome : HostRequest {
    Outcome() : HostRequest(&Outcome::finish) {}
    static void finish(HostRequest& request, bool failed, std::uint32_t transferred) noexcept {
        auto& self = static_cast<Outcome&>(request);
        self.failed = failed;
        self.transferred = transferred;
        self.thread = GetCurrentThreadId();
        ++self.completions;
    }
    // Waits alertably until the completion has run.
    Outcome& wait() {
        while (completions == 0)
            SleepEx(INFINITE, TRUE);
        return *this;
    }

    bool failed = false;
    std::uint32_t transferred = 0;
    DWORD thread = 0;
    int completions = 0;
};

std::u16string wide(std::filesystem::path const& path) {
    std::wstring const text = path.wstring();
    return {text.begin(), text.end()};
}

std::unique_ptr<HostFile> mustOpen(std::u16string const& name, FileAccess access) {
    auto opened = HostFile::open(name, access);
    EXPECT_TRUE(opened.file) << KString(opened.error).toUtf8();
    EXPECT_TRUE(opened.error.empty());
    return std::move(opened.file);
}

void write(HostFile& file, std::uint64_t position, Buffer const& buffer) {
    Outcome outcome;
    ASSERT_TRUE(file.startWrite(position, buffer.size, buffer.bytes, outcome));
    outcome.wait();
    ASSERT_FALSE(outcome.failed);
    ASSERT_EQ(outcome.transferred, buffer.size);
}

void expectBytes(HostFile& file, std::uint64_t position, Buffer const& expected) {
    Buffer found(expected.size, 0x55);
    Outcome outcome;
    ASSERT_TRUE(file.startRead(position, found.size, found.bytes, outcome));
    outcome.wait();
    ASSERT_FALSE(outcome.failed);
    ASSERT_EQ(outcome.transferred, expected.size);
    EXPECT_EQ(std::memcmp(found.bytes, expected.bytes, expected.size), 0);
}

// The text of Windows for an error, obtained in a different way than in the library.
std::u16string textOf(DWORD error) {
    wchar_t* text = nullptr;
    DWORD const length =
        FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS,
                       nullptr, error, 0, reinterpret_cast<wchar_t*>(&text), 0, nullptr);
    std::u16string const result(text, text + length);
    LocalFree(text);
    return result;
}

// With transfers that run later, as on Windows, and inside the call, as in Wine.
class WindowsFileTest : public testing::TestWithParam<bool> {
  protected:
    WindowsFileTest() { transferLater(GetParam()); }
    ~WindowsFileTest() override { transferLater(true); }

    ScratchFolder folder;
    std::u16string const name = wide(folder.path / "file");
};
INSTANTIATE_TEST_SUITE_P(Engines, WindowsFileTest, testing::Bool(),
                         [](auto const& engine) { return engine.param ? "Later" : "InTheCall"; });

TEST_P(WindowsFileTest, WrittenBytesAreReadBackBelowAndAboveFourGibibytes) {
    auto const file = mustOpen(name, FileAccess::create);
    std::uint64_t const positions[] = {0, 0x7FFFF000, 0x80000000, 0xFFFFF000, 0x100000000, 0x100001000, 0x4321000000};
    int fill = 1;
    for (auto position : positions)
        write(*file, position, Buffer(4096, fill++));
    fill = 1;
    for (auto position : positions)
        expectBytes(*file, position, Buffer(4096, fill++));
    std::uint64_t size = 0;
    ASSERT_TRUE(file->size(size));
    EXPECT_EQ(size, 0x4321001000u);
}

TEST_P(WindowsFileTest, ManyRequestsCompleteOnceEachOnTheirThreadInsideItsWait) {
    auto const file = mustOpen(name, FileAccess::create);
    constexpr std::size_t COUNT = 64;
    std::vector<std::unique_ptr<Buffer>> buffers;
    std::vector<std::unique_ptr<Outcome>> outcomes;
    for (std::size_t i = 0; i < COUNT; ++i) {
        buffers.push_back(std::make_unique<Buffer>(8192, static_cast<int>(i)));
        outcomes.push_back(std::make_unique<Outcome>());
        ASSERT_TRUE(file->startWrite(i * 8192, 8192, buffers[i]->bytes, *outcomes[i]));
    }
    for (auto const& outcome : outcomes)
        ASSERT_EQ(outcome->completions, 0) << "a completion ran outside an alertable wait";
    for (auto const& outcome : outcomes) {
        outcome->wait();
        EXPECT_FALSE(outcome->failed);
        EXPECT_EQ(outcome->thread, GetCurrentThreadId());
    }
    while (SleepEx(0, TRUE) == WAIT_IO_COMPLETION) {
    }
    for (std::size_t i = 0; i < COUNT; ++i) {
        EXPECT_EQ(outcomes[i]->completions, 1);
        expectBytes(*file, i * 8192, *buffers[i]);
    }
}

TEST_P(WindowsFileTest, ReadAcrossTheEndGivesWhatIsThereAndReadAtTheEndFails) {
    auto const file = mustOpen(name, FileAccess::create);
    write(*file, 0, Buffer(4096, 7));
    Buffer buffer(8192);
    Outcome across;
    ASSERT_TRUE(file->startRead(0, 8192, buffer.bytes, across));
    across.wait();
    EXPECT_FALSE(across.failed);
    EXPECT_EQ(across.transferred, 4096u);

    Outcome past;
    if (file->startRead(4096, 8192, buffer.bytes, past)) {
        EXPECT_TRUE(past.wait().failed);
    }
}

TEST_P(WindowsFileTest, TransfersOffTheSectorGridAreRefusedAtOnce) {
    auto const file = mustOpen(name, FileAccess::create);
    Buffer buffer(8192);
    Outcome outcome;
    for (DWORD off : {DWORD{1}, SECTOR_SIZE / 2, SECTOR_SIZE - 1}) {
        EXPECT_FALSE(file->startRead(off, 4096, buffer.bytes, outcome));
        EXPECT_FALSE(file->startRead(0, 4096 + off, buffer.bytes, outcome));
        EXPECT_FALSE(file->startRead(0, 4096, buffer.bytes + off, outcome));
        EXPECT_FALSE(file->startWrite(off, 4096, buffer.bytes, outcome));
        EXPECT_FALSE(file->startWrite(0, 4096 + off, buffer.bytes, outcome));
        EXPECT_FALSE(file->startWrite(0, 4096, buffer.bytes + off, outcome));
    }
    EXPECT_EQ(SleepEx(0, TRUE), 0u);
    EXPECT_EQ(outcome.completions, 0);
    std::uint64_t size = 1;
    ASSERT_TRUE(file->size(size));
    EXPECT_EQ(size, 0u);
}

// On a volume with larger sectors, or whose sectors are not known, nothing has to be aligned.
TEST_P(WindowsFileTest, WhereSectorsAreLargerSmallerTransfersWorkAllTheSame) {
    for (DWORD sector : {0u, 1024u, 4096u}) {
        SCOPED_TRACE(sector);
        setSectorSize(sector);
        std::u16string const file_name = name + static_cast<char16_t>(u'0' + sector / 1024);
        {
            auto const file = mustOpen(file_name, FileAccess::create);
            write(*file, 512, Buffer(512, 1));
            ASSERT_TRUE(file->share());
            write(*file, 1024, Buffer(512, 2));  // the handle is another one now
            EXPECT_TRUE(file->flush());
            EXPECT_TRUE(file->resize(2000));
        }
        for (FileAccess access : {FileAccess::read_only, FileAccess::read_write}) {
            auto const file = mustOpen(file_name, access);
            expectBytes(*file, 512, Buffer(512, 1));
            expectBytes(*file, 1024, Buffer(512, 2));
            std::uint64_t size = 0;
            ASSERT_TRUE(file->size(size));
            EXPECT_EQ(size, 2000u);
            Buffer read(1024);
            Outcome past, across;
            EXPECT_TRUE(!file->startRead(2000, 512, read.bytes, past) || past.wait().failed);
            ASSERT_TRUE(file->startRead(1536, 512, read.bytes, across));
            EXPECT_FALSE(across.wait().failed);
            EXPECT_EQ(across.transferred, 464u);
        }
        auto const file = mustOpen(file_name, FileAccess::read_write);
        Buffer const odd(513, 3);
        Outcome misaligned;
        ASSERT_TRUE(file->startWrite(1, 511, odd.bytes + 1, misaligned));
        EXPECT_FALSE(misaligned.wait().failed);
        EXPECT_EQ(misaligned.transferred, 511u);
    }
    setSectorSize(SECTOR_SIZE);
}

TEST_P(WindowsFileTest, WritingAReadOnlyFileIsRefusedAtOnce) {
    mustOpen(name, FileAccess::create);
    auto const file = mustOpen(name, FileAccess::read_only);
    Buffer buffer(4096);
    Outcome outcome;
    EXPECT_FALSE(file->startWrite(0, 4096, buffer.bytes, outcome));
}

TEST_P(WindowsFileTest, ThreadsMayEndWithCompletedAndWithPendingRequests) {
    auto const file = mustOpen(name, FileAccess::create);
    write(*file, 0, Buffer(65536, 3));
    // Requests that a thread leaves pending belong to the system for ever; nothing may free them.
    static Buffer abandoned_buffer(4096);
    static Outcome abandoned;
    for (int round = 0; round < 20; ++round) {
        std::thread([&] {
            Buffer buffer(4096);
            Outcome waited_for;
            ASSERT_TRUE(file->startRead(4096, 4096, buffer.bytes, waited_for));
            EXPECT_FALSE(waited_for.wait().failed);
            if (round == 0) {
                ASSERT_TRUE(file->startRead(0, 4096, abandoned_buffer.bytes, abandoned));
            }
        }).join();
    }
    expectBytes(*file, 0, Buffer(65536, 3));
    EXPECT_EQ(abandoned.completions, 0);
}

TEST(WindowsFile, EndOffTheSectorGridBecomesTheNextOnEveryGrid) {
    ScratchFolder folder;
    auto const file = mustOpen(wide(folder.path / "file"), FileAccess::create);
    struct {
        std::uint64_t wanted, made;
    } const ends[] = {{1000, 4096}, {4097, 8192}, {1536, 1536}, {8192, 8192}, {0x200000000, 0x200000000}, {0, 0}};
    for (auto const& end : ends) {
        EXPECT_TRUE(file->resize(end.wanted));
        std::uint64_t size = 1;
        ASSERT_TRUE(file->size(size));
        EXPECT_EQ(size, end.made) << "wanted: " << end.wanted;
    }
}

TEST(WindowsFile, OpeningWhatCannotBeOpenedGivesWindowsOwnText) {
    ScratchFolder folder;
    struct {
        std::u16string name;
        DWORD error;
    } const cases[] = {{wide(folder.path / "absent"), ERROR_FILE_NOT_FOUND},
                       {wide(folder.path / "absent" / "file"), ERROR_PATH_NOT_FOUND},
                       {wide(folder.path), ERROR_ACCESS_DENIED}};
    for (auto const& tried : cases) {
        auto const opened = HostFile::open(tried.name, FileAccess::read_only);
        EXPECT_FALSE(opened.file);
        EXPECT_EQ(opened.error, textOf(tried.error));
        EXPECT_TRUE(opened.error.ends_with(u"\r\n"));
    }
}

TEST(WindowsFile, FailureWithoutAnErrorCodeHasAnEmptyText) {
    ScratchFolder folder;
    failNextOpenWith(NO_ERROR);
    auto const opened = HostFile::open(wide(folder.path / "file"), FileAccess::create);
    EXPECT_FALSE(opened.file);
    EXPECT_TRUE(opened.error.empty());
}

TEST(WindowsFile, ErrorWithoutATextHasAnEmptyText) {
    SetLastError(0x2ABCDEF0);
    EXPECT_TRUE(lastErrorText().empty());
}

TEST(WindowsFile, CreatingKeepsWhatIsThere) {
    ScratchFolder folder;
    std::u16string const name = wide(folder.path / "file");
    write(*mustOpen(name, FileAccess::create), 4096, Buffer(4096, 9));
    expectBytes(*mustOpen(name, FileAccess::create), 4096, Buffer(4096, 9));
}

TEST(WindowsFile, NamesMayHoldCharactersOutsideTheBasicPlane) {
    ScratchFolder folder;
    std::u16string const name = wide(folder.path) + u"\\\U0001F3AC\u00e9\u4e2d\u03a9.clip";
    write(*mustOpen(name, FileAccess::create), 0, Buffer(512, 4));
    int found = 0;
    for (auto const& entry : std::filesystem::directory_iterator(folder.path)) {
        EXPECT_EQ(wide(entry.path()), name);
        ++found;
    }
    EXPECT_EQ(found, 1);
    expectBytes(*mustOpen(name, FileAccess::read_only), 0, Buffer(512, 4));
}

TEST(WindowsFile, NamesMayBeLongerThan260CharactersWithTheLongNamePrefix) {
    ScratchFolder folder;
    std::wstring path = L"\\\\?\\" + folder.path.wstring();
    std::vector<std::wstring> made;
    while (path.size() < 400) {
        path += L"\\" + std::wstring(60, L'd');
        ASSERT_TRUE(CreateDirectoryW(path.c_str(), nullptr)) << GetLastError();
        made.push_back(path);
    }
    path += L"\\file";
    std::u16string const name(path.begin(), path.end());
    write(*mustOpen(name, FileAccess::create), 0, Buffer(512, 6));
    expectBytes(*mustOpen(name, FileAccess::read_write), 0, Buffer(512, 6));

    EXPECT_TRUE(DeleteFileW(path.c_str()));
    for (auto nested = made.rbegin(); nested != made.rend(); ++nested)
        EXPECT_TRUE(RemoveDirectoryW(nested->c_str()));
}

// Opened by this process: may another process open the file so?
struct SharingCase {
    char const* name;
    FileAccess held, tried;
    bool may_open;
};
void PrintTo(SharingCase const& sharing, std::ostream* out) { *out << sharing.name; }

class SharingBetweenProcesses : public testing::TestWithParam<SharingCase> {};
INSTANTIATE_TEST_SUITE_P(
    Cases, SharingBetweenProcesses,
    testing::Values(SharingCase{"ReadersShare", FileAccess::read_only, FileAccess::read_only, true},
                    SharingCase{"WritersShare", FileAccess::read_write, FileAccess::read_write, true},
                    SharingCase{"WriterAndReaderShare", FileAccess::read_write, FileAccess::read_only, true},
                    SharingCase{"NobodyOpensWhatIsBeingCreated", FileAccess::create, FileAccess::read_only, false},
                    SharingCase{"NobodyWritesWhatIsBeingCreated", FileAccess::create, FileAccess::read_write, false},
                    SharingCase{"TwoCannotCreate", FileAccess::create, FileAccess::create, false},
                    SharingCase{"NobodyCreatesWhatIsOpen", FileAccess::read_only, FileAccess::create, false}),
    [](auto const& sharing) { return sharing.param.name; });

TEST_P(SharingBetweenProcesses, FollowsTheShareModes) {
    ScratchFolder folder;
    auto const path = folder.path / "file";
    mustOpen(wide(path), FileAccess::create);
    auto const held = mustOpen(wide(path), GetParam().held);
    int const code = test::runChild("WindowsFileChild.DISABLED_Opens",
                                    path.wstring() + L"|" + std::to_wstring(static_cast<int>(GetParam().tried)));
    EXPECT_EQ(code, GetParam().may_open ? test::CHILD_PASSED : test::CHILD_FAILED);
}

// Runs in the child process of the case above.
TEST(WindowsFileChild, DISABLED_Opens) {
    std::wstring const argument = test::childArgument();
    auto const cut = argument.rfind(L'|');
    auto const opened = HostFile::open({argument.begin(), argument.begin() + static_cast<std::ptrdiff_t>(cut)},
                                       static_cast<FileAccess>(std::stoi(argument.substr(cut + 1))));
    EXPECT_TRUE(opened.file);
    if (!opened.file) {
        EXPECT_EQ(opened.error, textOf(ERROR_SHARING_VIOLATION));
    }
}

}  // namespace
}  // namespace KelvonClip::platform
