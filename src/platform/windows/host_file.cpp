// Host files with overlapped, unbuffered Windows handles.
//
// Invariants
//   * The OVERLAPPED of a request is stored in its HostRequest. Its event field, which is free for the program's use
//     with completion routines, points back to the HostRequest.
//   * Windows queues the completion routine to the issuing thread, which runs it in an alertable wait (wait.h).
//   * The handle is unbuffered: Windows refuses transfers whose position, length or address is not sector-aligned.
// Threads: any.
#include "platform/host_file.h"

#include <windows.h>

#include <new>
#include <utility>

#include "platform/host.h"
#include "platform/round_up.h"

namespace KelvonClip::platform {

namespace {

static_assert(sizeof(OVERLAPPED) <= sizeof(HostRequest::host_record));
static_assert(alignof(OVERLAPPED) <= 8, "the alignment of host_record");

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

// The request's own OVERLAPPED, ready for a transfer at `position`.
OVERLAPPED* prepare(HostRequest& request, std::uint64_t position) {
    auto* overlapped = new (request.host_record) OVERLAPPED{};
    overlapped->Offset = static_cast<DWORD>(position);
    overlapped->OffsetHigh = static_cast<DWORD>(position >> 32);
    overlapped->hEvent = &request;
    return overlapped;
}

void CALLBACK transferDone(DWORD error, DWORD transferred, OVERLAPPED* overlapped) {
    auto& request = *static_cast<HostRequest*>(overlapped->hEvent);
    request.done(request, error != 0, transferred);
}

class WindowsFile final : public HostFile {
  public:
    ~WindowsFile() override {
        if (handle != INVALID_HANDLE_VALUE) CloseHandle(handle);
    }

    bool open(std::wstring const& name, OpenMode const& mode) {
        handle = CreateFileW(name.c_str(), mode.access, mode.share, nullptr, mode.disposition,
                             FILE_FLAG_OVERLAPPED | FILE_FLAG_NO_BUFFERING, nullptr);
        return handle != INVALID_HANDLE_VALUE;
    }

    bool startRead(std::uint64_t position, std::uint32_t length, void* buffer, HostRequest& request) override {
        return ReadFileEx(handle, buffer, length, prepare(request, position), &transferDone) != FALSE;
    }

    bool startWrite(std::uint64_t position, std::uint32_t length, void const* buffer, HostRequest& request) override {
        return WriteFileEx(handle, buffer, length, prepare(request, position), &transferDone) != FALSE;
    }

    // A lock on a byte past the end of every file.
    bool ownWriting() override {
        OVERLAPPED place{};
        place.Offset = 0xFFFFFFFE;
        place.OffsetHigh = 0x7FFFFFFF;
        return LockFileEx(handle, LOCKFILE_EXCLUSIVE_LOCK | LOCKFILE_FAIL_IMMEDIATELY, 0, 1, 0, &place) ||
               (GetLastError() != ERROR_LOCK_VIOLATION && GetLastError() != ERROR_IO_PENDING);
    }

    bool size(std::uint64_t& bytes) const override {
        LARGE_INTEGER found;
        if (!GetFileSizeEx(handle, &found)) return false;
        bytes = static_cast<std::uint64_t>(found.QuadPart);
        return true;
    }

    // An unbuffered handle accepts only sector-aligned lengths; any other length is rounded up to DIRECT_ALIGNMENT.
    bool resize(std::uint64_t bytes) override {
        if (setEnd(bytes)) return true;
        return GetLastError() == ERROR_INVALID_PARAMETER && bytes % DIRECT_ALIGNMENT != 0 &&
               setEnd(roundUp<std::uint64_t>(bytes, DIRECT_ALIGNMENT));
    }

    bool flush() override { return FlushFileBuffers(handle) != FALSE; }
    // The file system journals directory entries; flushing the file flushes its journal.
    bool flushName() override { return flush(); }

  private:
    bool setEnd(std::uint64_t bytes) {
        LARGE_INTEGER end;
        end.QuadPart = static_cast<LONGLONG>(bytes);
        return SetFilePointerEx(handle, end, nullptr, FILE_BEGIN) && SetEndOfFile(handle);
    }

    HANDLE handle = INVALID_HANDLE_VALUE;
};

}  // namespace

HostFile::Opened HostFile::open(std::u16string const& name, FileAccess access) {
    std::wstring const wide(name.begin(), name.end());
    auto file = std::make_unique<WindowsFile>();
    if (!file->open(wide, OPEN_MODES[static_cast<int>(access)])) return {lastErrorText(), nullptr};
    return {{}, std::move(file)};
}

}  // namespace KelvonClip::platform
