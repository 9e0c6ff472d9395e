// Host files with two descriptors: a direct one for aligned transfers and a buffered one for all others.
//
// The kernel keeps both coherent: a direct transfer first writes back the cached pages of its range, and a direct write
// discards them.
//
// Sharing resembles the share modes of Windows. It uses an advisory lock on the whole file, held on the buffered
// descriptor as long as the object lives: exclusive for whoever creates the file, shared for those who open it.
#include "platform/host_file.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <limits>
#include <new>
#include <string_view>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <unistd.h>

#include "platform/host.h"
#include "platform/linux/host_text.h"
#include "platform/linux/io_queue.h"
#include "platform/linux/transfer.h"

namespace KelvonClip::platform {

namespace {

constexpr char16_t const* NOT_A_FILE = u"Not a regular file";
constexpr char16_t const* HELD_BY_CREATOR = u"The file is in use: whoever created it has it open still";
constexpr char16_t const* HELD_BY_OTHERS = u"The file is in use: it can't be created while it is open elsewhere";

// Positions are signed on this host.
constexpr std::uint64_t MAX_POSITION = std::numeric_limits<std::int64_t>::max();

constexpr off_t OWNER_BYTE = std::numeric_limits<off_t>::max() - 1;

constexpr mode_t NEW_FILE_MODE = 0666;  // reduced by the process's umask

class Descriptor {
  public:
    explicit Descriptor(int open_descriptor = -1) : number(open_descriptor) {}
    Descriptor(Descriptor&& other) noexcept : number(std::exchange(other.number, -1)) {}
    ~Descriptor() {
        if (valid()) ::close(number);
    }
    bool valid() const { return number >= 0; }
    int get() const { return number; }

  private:
    int number;
};

// Repeats a system call while signals interrupt it. Returns whether it succeeded.
template <class Call>
bool repeated(Call&& call) {
    int result = 0;
    do
        result = call();
    while (result < 0 && errno == EINTR);
    return result >= 0;
}

Descriptor openDescriptor(std::string const& path, int flags) {
    int number = -1;
    repeated([&] { return number = ::open(path.c_str(), flags | O_CLOEXEC | O_NOCTTY, NEW_FILE_MODE); });
    return Descriptor(number);
}

// Error text for anything but a regular file; otherwise empty.
std::u16string notRegularFileError(struct stat const& found) {
    if (S_ISREG(found.st_mode)) return {};
    return S_ISDIR(found.st_mode) ? hostErrorText(EISDIR) : NOT_A_FILE;
}

bool isOnMemoryFileSystem(int descriptor) {
    struct statfs found;
    return ::fstatfs(descriptor, &found) == 0 && (found.f_type == TMPFS_MAGIC || found.f_type == RAMFS_MAGIC);
}

class LinuxFile : public HostFile {
  public:
    LinuxFile(std::string name, Descriptor buffered_fd, Descriptor direct_fd, bool reading_only)
        : path(std::move(name)), buffered(std::move(buffered_fd)), direct(std::move(direct_fd)),
          read_only(reading_only) {
        descriptors.buffered = buffered.get();
        (void)askForState(when_opened);
        descriptors.direct = direct.get();
        descriptors.in_memory = isOnMemoryFileSystem(buffered.get());
        if (direct.valid()) queryAlignment();
    }

    // Locks belong to the open file description, which a forked child shares: closing alone would not release them.
    ~LinuxFile() override {
        if (isTheParents()) return;
        ::flock(buffered.get(), LOCK_UN);
        lockOwnerByte(F_UNLCK);
    }

    bool startRead(std::uint64_t position, std::uint32_t length, void* buffer, HostRequest& request) override {
        return start(false, position, length, static_cast<std::byte*>(buffer), request);
    }

    bool startWrite(std::uint64_t position, std::uint32_t length, void const* buffer, HostRequest& request) override {
        if (read_only || isTheParents()) return false;
        // A write never changes the buffer; Transfer has one pointer type for both directions.
        return start(true, position, length, static_cast<std::byte*>(const_cast<void*>(buffer)), request);
    }

    // A lock of the open file description, on a byte past the end of every file.
    Ownership ownWriting() override {
        if (isTheParents()) return Ownership::obtained;  // its writes fail
        if (!lockOwnerByte(F_WRLCK) && (errno == EAGAIN || errno == EACCES)) return Ownership::of_another;
        State now;
        if (askForState(now) && now == when_opened) return Ownership::obtained;
        lockOwnerByte(F_UNLCK);
        return Ownership::changed_since;
    }

    Writer otherWriter() override {
        struct flock owner = ownerByte(F_WRLCK);
        if (!repeated([&] { return ::fcntl(descriptors.buffered, F_OFD_GETLK, &owner); })) return Writer::unknown;
        return owner.l_type == F_UNLCK ? Writer::nobody : Writer::somebody;
    }

    // The kernel releases the lock before it acquires the other kind, so somebody else may acquire it in between.
    bool share() override {
        if (isTheParents()) return false;
        return repeated([&] { return ::flock(buffered.get(), LOCK_SH | LOCK_NB); }) || errno != EWOULDBLOCK;
    }

    bool size(std::uint64_t& bytes) const override {
        struct stat found;
        if (::fstat(descriptors.buffered, &found) != 0) return false;
        bytes = static_cast<std::uint64_t>(found.st_size);
        return true;
    }

    bool resize(std::uint64_t bytes) override {
        if (bytes > MAX_POSITION || isTheParents() || exceedsProcessLimit(bytes)) return false;
        return repeated([&] { return ::ftruncate(descriptors.buffered, static_cast<off_t>(bytes)); });
    }

    // The file system drops its copies of a file when it finds it changed.
    void revalidate() override {
        State unused;
        (void)askForState(unused);
    }

    bool flush() override {
        return repeated([&] { return ::fdatasync(descriptors.buffered); });
    }

    // Flushes the folder, which holds the directory entry. If it cannot be opened, flushes the whole file system.
    bool flushName() override {
        std::unique_ptr<char, decltype(&std::free)> const real(::realpath(path.c_str(), nullptr), &std::free);
        if (real != nullptr) {
            std::string const folder(real.get(), std::string_view(real.get()).rfind('/') + 1);
            Descriptor const opened = openDescriptor(folder, O_RDONLY | O_DIRECTORY);
            if (opened.valid() && repeated([&] { return ::fsync(opened.get()); })) return true;
        }
        return repeated([&] { return ::syncfs(descriptors.buffered); });
    }

  private:
    // Changes whenever somebody writes to the file.
    struct State {
        std::uint64_t size = 0;
        std::int64_t modified_seconds = 0;
        std::uint32_t modified_nanoseconds = 0;

        bool operator==(State const&) const = default;
    };

    // Asks the file system itself. A network file system answers `fstat` from memory for some seconds, but older
    // kernels and some containers have no other call.
    bool askForState(State& state) const {
        struct statx now;
        int const flags = AT_EMPTY_PATH | AT_STATX_FORCE_SYNC;
        if (::statx(descriptors.buffered, "", flags, STATX_SIZE | STATX_MTIME, &now) == 0) {
            state = {now.stx_size, now.stx_mtime.tv_sec, now.stx_mtime.tv_nsec};
            return true;
        }
        if (errno != ENOSYS && errno != EPERM && errno != EINVAL) return false;
        struct stat found;
        if (::fstat(descriptors.buffered, &found) != 0) return false;
        state = {static_cast<std::uint64_t>(found.st_size), found.st_mtim.tv_sec,
                 static_cast<std::uint32_t>(found.st_mtim.tv_nsec)};
        return true;
    }

    static struct flock ownerByte(short type) {
        struct flock owner {};
        owner.l_type = type;
        owner.l_whence = SEEK_SET;
        owner.l_start = OWNER_BYTE;
        owner.l_len = 1;
        return owner;
    }

    bool lockOwnerByte(short type) const {
        struct flock owner = ownerByte(type);
        return repeated([&] { return ::fcntl(descriptors.buffered, F_OFD_SETLK, &owner); });
    }

    // Whether the process's limit for the size of files is below `end`. The kernel would send SIGXFSZ, which ends the
    // process unless the program handles it. The limit is asked for only when a write reaches further than all before.
    bool exceedsProcessLimit(std::uint64_t end) {
        if (end <= allowed_end.load(std::memory_order_relaxed)) return false;
        struct rlimit limit;
        if (::getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY && end > limit.rlim_cur)
            return true;
        allowed_end.store(end, std::memory_order_relaxed);
        return false;
    }

    bool start(bool writing, std::uint64_t position, std::uint32_t length, std::byte* memory, HostRequest& request) {
        if (position > MAX_POSITION - length) return false;
        if (writing && exceedsProcessLimit(position + length)) return false;
        new (request.host_record) Transfer{.request = &request,
                                           .file = &descriptors,
                                           .next = nullptr,
                                           .memory = memory,
                                           .position = position,
                                           .length = length,
                                           .transferred = 0,
                                           .writing = writing,
                                           .failed = false,
                                           .step_is_direct = false,
                                           .buffered_only = false};
        IoQueue::ofThisThread().start(request);
        return true;
    }

    // Newer kernels report the alignment for direct transfers, or that the file does not support them.
    void queryAlignment() {
        struct statx told;
        if (::statx(descriptors.direct, "", AT_EMPTY_PATH, STATX_DIOALIGN, &told) != 0) return;
        if ((told.stx_mask & STATX_DIOALIGN) == 0) return;
        if (told.stx_dio_mem_align == 0 || told.stx_dio_offset_align == 0) {
            descriptors.direct = -1;
            return;
        }
        descriptors.memory_alignment = told.stx_dio_mem_align;
        descriptors.position_alignment = told.stx_dio_offset_align;
    }

    // A forked child must not write files that the parent has open, because its maps and lengths are out of date.
    bool isTheParents() const { return forks_before != forkCount(); }

    std::uint32_t const forks_before = forkCount();
    std::string const path;
    Descriptor buffered;
    Descriptor direct;
    Descriptors descriptors;
    State when_opened;
    bool read_only;
    std::atomic<std::uint64_t> allowed_end = 0;  // what the process's limit was found to allow
};

struct AccessFlags {
    int open_flags;
    int lock;
    char16_t const* conflict;
};

// In the order of FileAccess.
constexpr std::array<AccessFlags, 3> ACCESS = {{
    {O_RDONLY, LOCK_SH, HELD_BY_CREATOR},
    {O_RDWR, LOCK_SH, HELD_BY_CREATOR},
    {O_RDWR | O_CREAT, LOCK_EX, HELD_BY_OTHERS},
}};

// Empty if the lock was acquired or the file system has no locks; otherwise the error text. A program that only checks
// whether it can open a file locks it for a moment. So that this does not make creation fail, creation tries again.
std::u16string takeLock(int descriptor, AccessFlags const& access) {
    constexpr int TRIES = 100;
    constexpr std::chrono::milliseconds PAUSE{1};
    for (int tries = 1;; ++tries) {
        if (repeated([&] { return ::flock(descriptor, access.lock | LOCK_NB); }) || errno == ENOLCK ||
            errno == EOPNOTSUPP || errno == ENOSYS)
            return {};
        if (errno != EWOULDBLOCK) return hostErrorText(errno);
        if (access.lock != LOCK_EX || tries == TRIES) return access.conflict;
        std::this_thread::sleep_for(PAUSE);
    }
}

// What file systems without direct transfers answer to O_DIRECT.
bool lacksDirectTransfers(int error) { return error == EINVAL || error == EOPNOTSUPP; }

struct OpenedDirect {
    std::u16string error;
    Descriptor descriptor;
    bool replaced = false;  // the path now names another file, or none
};

// Opens a second, direct descriptor for the open file `file`. Invalid without an error if the file system does not
// support direct transfers. Everything else is an error: the file would be slow for as long as it is open.
OpenedDirect openDirect(std::string const& path, int open_flags, struct stat const& file) {
    Descriptor direct = openDescriptor(path, (open_flags & ~O_CREAT) | O_DIRECT);
    if (!direct.valid() && lacksDirectTransfers(errno)) return {{}, Descriptor()};
    struct stat found;
    if (!direct.valid() || ::fstat(direct.get(), &found) != 0)
        return {hostErrorText(errno), Descriptor(), errno == ENOENT};
    if (found.st_dev != file.st_dev || found.st_ino != file.st_ino) return {hostErrorText(ESTALE), Descriptor(), true};
    return {{}, std::move(direct)};
}

struct OpenedBoth {
    HostFile::Opened result;
    bool replaced = false;  // between the two opens
};

OpenedBoth openBoth(std::string const& path, AccessFlags const& access, bool read_only) {
    // Check the kind of file before opening it: opening a pipe or a device may block or have side effects.
    struct stat found;
    if (::stat(path.c_str(), &found) == 0) {
        if (std::u16string error = notRegularFileError(found); !error.empty()) return {{std::move(error), nullptr}};
    }
    Descriptor buffered = openDescriptor(path, access.open_flags);
    if (!buffered.valid() || ::fstat(buffered.get(), &found) != 0) return {{hostErrorText(errno), nullptr}};
    if (std::u16string error = notRegularFileError(found); !error.empty()) return {{std::move(error), nullptr}};
    if (std::u16string error = takeLock(buffered.get(), access); !error.empty()) return {{std::move(error), nullptr}};

    OpenedDirect direct = openDirect(path, access.open_flags, found);
    if (!direct.error.empty()) return {{std::move(direct.error), nullptr}, direct.replaced};
    return {{{}, std::make_unique<LinuxFile>(path, std::move(buffered), std::move(direct.descriptor), read_only)}};
}

}  // namespace

// Programs that save a file under another name and then rename it may do so between the two opens.
HostFile::Opened HostFile::open(std::u16string const& name, FileAccess wanted) {
    constexpr int TRIES = 10;
    AccessFlags const& access = ACCESS.at(static_cast<std::size_t>(wanted));
    std::string const path = hostFileName(name);
    for (int tries = 1;; ++tries) {
        OpenedBoth opened = openBoth(path, access, wanted == FileAccess::read_only);
        if (!opened.replaced || tries == TRIES) return std::move(opened.result);
    }
}

}  // namespace KelvonClip::platform
