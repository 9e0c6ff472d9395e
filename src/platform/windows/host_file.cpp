// Host files with overlapped Windows handles, unbuffered where the volume's sectors allow it.
//
// The files of the library have extents of 512 bytes. On a volume with larger sectors Windows would refuse to transfer
// them past its cache, so there, and where the size is not known, files are opened with buffering. Everything else is
// the same: what is written is on the disk after a flush.
//
// Sharing a file needs a new handle: the share mode of a handle cannot be changed.
//
// Invariants
//   * The OVERLAPPED of a request is stored in its HostRequest, at the start of a Transfer. Its event field, which is
//     free for the program's use with completion routines, points back to the HostRequest.
//   * Windows queues the completion routine to the issuing thread, which runs it in an alertable wait (wait.h).
//   * If the handle is unbuffered, Windows refuses transfers whose position, length or address is not sector-aligned.
// Threads: any.
#include "platform/host_file.h"

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <new>
#include <string>
#include <utility>

#include "platform/host.h"
#include "platform/round_up.h"

namespace KelvonClip::platform {

namespace {

struct OpenMode {
    DWORD access, share, disposition;
};
// One row per FileAccess, in value order.
constexpr OpenMode OPEN_MODES[] = {
    {GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, OPEN_EXISTING},
    {GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, OPEN_EXISTING},
    {GENERIC_READ | GENERIC_WRITE, 0, OPEN_ALWAYS},  // KEEP: an existing file is not truncated
};
static_assert(static_cast<int>(FileAccess::create) == 2);

class WindowsFile;

// The host's record of a request.
struct Transfer {
    OVERLAPPED overlapped{};
    WindowsFile* file = nullptr;
};
static_assert(sizeof(Transfer) <= sizeof(HostRequest::host_record));
static_assert(alignof(Transfer) <= 8, "the alignment of host_record");

// Holds a lock that many may share, or one alone.
class SharedHold {
  public:
    explicit SharedHold(SRWLOCK& held) : lock(held) { AcquireSRWLockShared(&lock); }
    ~SharedHold() { ReleaseSRWLockShared(&lock); }
    SharedHold(SharedHold const&) = delete;
    SharedHold& operator=(SharedHold const&) = delete;

  private:
    SRWLOCK& lock;
};
class SoleHold {
  public:
    explicit SoleHold(SRWLOCK& held) : lock(held) { AcquireSRWLockExclusive(&lock); }
    ~SoleHold() { ReleaseSRWLockExclusive(&lock); }
    SoleHold(SoleHold const&) = delete;
    SoleHold& operator=(SoleHold const&) = delete;

  private:
    SRWLOCK& lock;
};

constexpr DWORD SMALLEST_SECTOR = 512;

// The size of a logical sector of the volume on which a file is or will be; 0 if it is not known.
DWORD sectorSize(std::wstring const& file_name) {
    std::wstring volume(32768, L'\0');
    DWORD sectors_per_cluster = 0, bytes_per_sector = 0, free_clusters = 0, clusters = 0;
    bool const known =
        GetVolumePathNameW(file_name.c_str(), volume.data(), static_cast<DWORD>(volume.size())) &&
        GetDiskFreeSpaceW(volume.c_str(), &sectors_per_cluster, &bytes_per_sector, &free_clusters, &clusters);
    return known ? bytes_per_sector : 0;
}

class WindowsFile final : public HostFile {
  public:
    ~WindowsFile() override {
        if (handle != INVALID_HANDLE_VALUE) CloseHandle(handle);
    }

    bool open(std::wstring const& file_name, FileAccess access) {
        name = file_name;
        mode = access;
        DWORD const sector = sectorSize(name);
        buffering = sector == 0 || sector > SMALLEST_SECTOR ? 0 : FILE_FLAG_NO_BUFFERING;
        if (!openHandle()) return false;
        when_opened = stateNow();
        return true;
    }

    bool startRead(std::uint64_t position, std::uint32_t length, void* buffer, HostRequest& request) override {
        return start(position, request, [&](OVERLAPPED* overlapped) {
            return ReadFileEx(handle, buffer, length, overlapped, &transferDone);
        });
    }

    bool startWrite(std::uint64_t position, std::uint32_t length, void const* buffer, HostRequest& request) override {
        return start(position, request, [&](OVERLAPPED* overlapped) {
            return WriteFileEx(handle, buffer, length, overlapped, &transferDone);
        });
    }

    Ownership ownWriting() override {
        SharedHold const hold(handle_lock);
        if (!becomeOwner()) return Ownership::of_another;
        if (stateNow() != when_opened) {
            unlockOwnerByte();
            return Ownership::changed_since;
        }
        owner = true;
        return Ownership::obtained;
    }

    // The host has no question for it: shares the lock for a moment.
    Writer otherWriter() override {
        SharedHold const hold(handle_lock);
        if (owner) return Writer::nobody;
        switch (lockOwnerByte(0)) {
        case Lock::refused:
            return Writer::somebody;
        case Lock::not_supported:
            return Writer::unknown;
        case Lock::obtained:
            break;
        }
        unlockOwnerByte();
        return Writer::nobody;
    }

    // Closes the handle and opens another one, which no request may notice.
    bool share() override {
        SoleHold const alone(handle_lock);
        if (mode != FileAccess::create) return true;
        if (under_way != 0) return false;
        if (handle != INVALID_HANDLE_VALUE) CloseHandle(handle);
        mode = FileAccess::read_write;
        if (!openHandle()) {
            mode = FileAccess::create;
            openHandle();  // if that fails too, transfers fail until the next attempt
            return false;
        }
        return !owner || becomeOwner();
    }

    bool size(std::uint64_t& bytes) const override {
        SharedHold const hold(handle_lock);
        LARGE_INTEGER found;
        if (!GetFileSizeEx(handle, &found)) return false;
        bytes = static_cast<std::uint64_t>(found.QuadPart);
        return true;
    }

    // An unbuffered handle accepts only sector-aligned lengths; any other length is rounded up to DIRECT_ALIGNMENT.
    bool resize(std::uint64_t bytes) override {
        SharedHold const hold(handle_lock);
        if (setEnd(bytes)) return true;
        return GetLastError() == ERROR_INVALID_PARAMETER && bytes % DIRECT_ALIGNMENT != 0 &&
               setEnd(roundUp<std::uint64_t>(bytes, DIRECT_ALIGNMENT));
    }

    bool flush() override {
        SharedHold const hold(handle_lock);
        return FlushFileBuffers(handle) != FALSE;
    }
    // The file system journals directory entries; flushing the file flushes its journal.
    bool flushName() override { return flush(); }

  private:
    bool openHandle() {
        OpenMode const& how = OPEN_MODES[static_cast<int>(mode)];
        handle = CreateFileW(name.c_str(), how.access, how.share, nullptr, how.disposition,
                             FILE_FLAG_OVERLAPPED | buffering, nullptr);
        return handle != INVALID_HANDLE_VALUE;
    }

    template <class Start>
    bool start(std::uint64_t position, HostRequest& request, Start&& start_transfer) {
        SharedHold const hold(handle_lock);
        auto* transfer = new (request.host_record) Transfer{};
        transfer->overlapped.Offset = static_cast<DWORD>(position);
        transfer->overlapped.OffsetHigh = static_cast<DWORD>(position >> 32);
        transfer->overlapped.hEvent = &request;
        transfer->file = this;
        ++under_way;
        if (start_transfer(&transfer->overlapped)) return true;
        --under_way;
        return false;
    }

    static void CALLBACK transferDone(DWORD error, DWORD transferred, OVERLAPPED* overlapped) {
        auto& request = *static_cast<HostRequest*>(overlapped->hEvent);
        --reinterpret_cast<Transfer*>(overlapped)->file->under_way;
        request.done(request, error != 0, transferred);
    }

    struct State {
        std::uint64_t size = 0, last_write = 0;
        bool operator==(State const&) const = default;
    };
    State stateNow() const {
        BY_HANDLE_FILE_INFORMATION found;
        if (!GetFileInformationByHandle(handle, &found)) return {};
        auto const joined = [](DWORD high, DWORD low) { return (std::uint64_t{high} << 32) | low; };
        return {joined(found.nFileSizeHigh, found.nFileSizeLow),
                joined(found.ftLastWriteTime.dwHighDateTime, found.ftLastWriteTime.dwLowDateTime)};
    }

    // A byte past the end of every file.
    static OVERLAPPED ownerByte() {
        OVERLAPPED place{};
        place.Offset = 0xFFFFFFFE;
        place.OffsetHigh = 0x7FFFFFFF;
        return place;
    }
    enum class Lock { obtained, refused, not_supported };
    // On network drives the answer may come later.
    Lock lockOwnerByte(DWORD exclusive) {
        OVERLAPPED place = ownerByte();
        place.hEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
        bool locked = LockFileEx(handle, exclusive | LOCKFILE_FAIL_IMMEDIATELY, 0, 1, 0, &place) != FALSE;
        DWORD error = locked ? 0 : GetLastError();
        if (error == ERROR_IO_PENDING) {
            DWORD nothing = 0;
            locked = GetOverlappedResult(handle, &place, &nothing, TRUE) != FALSE;
            error = locked ? 0 : GetLastError();
        }
        if (place.hEvent != nullptr) CloseHandle(place.hEvent);
        if (locked) return Lock::obtained;
        return error == ERROR_LOCK_VIOLATION || error == ERROR_LOCK_FAILED ? Lock::refused : Lock::not_supported;
    }
    // True also if the file system has no locks. Tries again for a while: who asks whether somebody writes has the lock
    // for a moment.
    bool becomeOwner() {
        constexpr int TRIES = 20;
        for (int tries = 1; lockOwnerByte(LOCKFILE_EXCLUSIVE_LOCK) == Lock::refused; ++tries) {
            if (tries == TRIES) return false;
            Sleep(1);
        }
        return true;
    }
    void unlockOwnerByte() {
        OVERLAPPED place = ownerByte();
        UnlockFileEx(handle, 0, 1, 0, &place);
    }

    bool setEnd(std::uint64_t bytes) {
        LARGE_INTEGER end;
        end.QuadPart = static_cast<LONGLONG>(bytes);
        return SetFilePointerEx(handle, end, nullptr, FILE_BEGIN) && SetEndOfFile(handle);
    }

    std::wstring name;
    FileAccess mode = FileAccess::read_only;
    DWORD buffering = 0;  // FILE_FLAG_NO_BUFFERING, or 0 for a buffered handle
    // Guards the handle. It is shared by everyone who uses the handle, and held alone to replace it.
    mutable SRWLOCK handle_lock = SRWLOCK_INIT;
    HANDLE handle = INVALID_HANDLE_VALUE;
    std::atomic<std::uint32_t> under_way{0};  // transfers
    std::atomic<bool> owner{false};
    State when_opened;
};

}  // namespace

HostFile::Opened HostFile::open(std::u16string const& name, FileAccess access) {
    auto file = std::make_unique<WindowsFile>();
    if (!file->open(std::wstring(name.begin(), name.end()), access)) return {lastErrorText(), nullptr};
    return {{}, std::move(file)};
}

}  // namespace KelvonClip::platform
