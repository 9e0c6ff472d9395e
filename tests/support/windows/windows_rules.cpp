#include "support/windows/windows_rules.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <new>
#include <optional>
#include <utility>
#include <vector>

namespace KelvonClip::test {

namespace {

// The functions of the system, called without going through the import tables.
HMODULE const SYSTEM = GetModuleHandleW(L"kernel32.dll");
template <class Function>
Function systemFunction(char const* name) {
    return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(SYSTEM, name)));
}
auto const system_CreateFileW = systemFunction<decltype(&CreateFileW)>("CreateFileW");
auto const system_CloseHandle = systemFunction<decltype(&CloseHandle)>("CloseHandle");
auto const system_ReadFileEx = systemFunction<decltype(&ReadFileEx)>("ReadFileEx");
auto const system_WriteFileEx = systemFunction<decltype(&WriteFileEx)>("WriteFileEx");
auto const system_SetEndOfFile = systemFunction<decltype(&SetEndOfFile)>("SetEndOfFile");
auto const system_GetDiskFreeSpaceW = systemFunction<decltype(&GetDiskFreeSpaceW)>("GetDiskFreeSpaceW");

class Locked {
  public:
    explicit Locked(SRWLOCK& to_hold) : lock(to_hold) { AcquireSRWLockExclusive(&lock); }
    ~Locked() { ReleaseSRWLockExclusive(&lock); }
    Locked(Locked const&) = delete;
    Locked& operator=(Locked const&) = delete;

  private:
    SRWLOCK& lock;
};

// What is allocated here stands for memory of the system: tests that count the library's allocations, or let them fail,
// must not meet it.
template <class T>
struct SystemMemory {
    using value_type = T;
    SystemMemory() = default;
    template <class Other>
    SystemMemory(SystemMemory<Other> const&) {}

    T* allocate(std::size_t count) {
        if (void* const memory = HeapAlloc(GetProcessHeap(), 0, count * sizeof(T))) return static_cast<T*>(memory);
        throw std::bad_alloc();
    }
    void deallocate(T* memory, std::size_t) { HeapFree(GetProcessHeap(), 0, memory); }
    bool operator==(SystemMemory const&) const { return true; }
};

// The open overlapped handles, and what they were opened for.
struct OpenedFor {
    DWORD access;
    bool unbuffered;
};
SRWLOCK files_lock = SRWLOCK_INIT;
using Files = std::map<HANDLE, OpenedFor, std::less<>, SystemMemory<std::pair<HANDLE const, OpenedFor>>>;
Files& files() {
    static auto* const open_files = new Files;
    return *open_files;
}
std::optional<OpenedFor> found(HANDLE file) {
    Locked const held(files_lock);
    auto const open_file = files().find(file);
    if (open_file == files().end()) return std::nullopt;
    return open_file->second;
}

struct Transfer {
    bool writes;
    HANDLE file, issuer;
    void* buffer;
    DWORD length;
    OVERLAPPED* overlapped;
    LPOVERLAPPED_COMPLETION_ROUTINE routine;
    DWORD error = 0, transferred = 0;

    static void* operator new(std::size_t bytes) { return SystemMemory<std::byte>().allocate(bytes); }
    static void operator delete(void* memory) {
        SystemMemory<std::byte>().deallocate(static_cast<std::byte*>(memory), 0);
    }

    // Runs the transfer on the worker thread with an OVERLAPPED of its own: the event field of the issuer's is in use.
    void run() {
        OVERLAPPED own{};
        own.Offset = overlapped->Offset;
        own.OffsetHigh = overlapped->OffsetHigh;
        own.hEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
        BOOL done =
            writes ? WriteFile(file, buffer, length, nullptr, &own) : ReadFile(file, buffer, length, nullptr, &own);
        if (done || GetLastError() == ERROR_IO_PENDING) done = GetOverlappedResult(file, &own, &transferred, TRUE);
        error = done ? 0 : GetLastError();
        system_CloseHandle(own.hEvent);
    }
};

void CALLBACK deliver(ULONG_PTR parameter) {
    std::unique_ptr<Transfer> const transfer(reinterpret_cast<Transfer*>(parameter));
    transfer->routine(transfer->error, transfer->transferred, transfer->overlapped);
}

// The thread that runs the transfers. It runs until the process ends.
class Worker {
  public:
    // Started before the first transfer: a thread cannot be started while DLLs are loaded or unloaded, and a thread
    // that is still starting when the process ends may fault.
    Worker() : thread(CreateThread(nullptr, 0, &Worker::entry, this, 0, nullptr)) {
        WaitForSingleObject(running, INFINITE);
    }

    // While the process unloads its DLLs, all threads but one have been terminated already.
    bool alive() const { return WaitForSingleObject(thread, 0) == WAIT_TIMEOUT; }

    void add(std::unique_ptr<Transfer> transfer) {
        Locked const held(lock);
        waiting.push_back(std::move(transfer));
        WakeConditionVariable(&more);
    }

  private:
    static DWORD CALLBACK entry(void* self) {
        auto& worker = *static_cast<Worker*>(self);
        SetEvent(worker.running);
        for (;;)
            worker.runOne();
    }

    void runOne() {
        auto transfer = take();
        transfer->run();
        HANDLE const issuer = transfer->issuer;
        // A thread that has ended receives no completion: the transfer is lost, as on Windows.
        if (QueueUserAPC(&deliver, issuer, reinterpret_cast<ULONG_PTR>(transfer.get()))) (void)transfer.release();
        system_CloseHandle(issuer);
    }

    // Picks a waiting transfer, by a fixed pseudo-random sequence.
    std::unique_ptr<Transfer> take() {
        Locked const held(lock);
        while (waiting.empty())
            SleepConditionVariableSRW(&more, &lock, INFINITE, 0);
        random = random * 1664525 + 1013904223;
        auto const chosen = waiting.begin() + static_cast<std::ptrdiff_t>((random >> 16) % waiting.size());
        auto transfer = std::move(*chosen);
        waiting.erase(chosen);
        return transfer;
    }

    SRWLOCK lock = SRWLOCK_INIT;
    CONDITION_VARIABLE more = CONDITION_VARIABLE_INIT;
    std::vector<std::unique_ptr<Transfer>, SystemMemory<std::unique_ptr<Transfer>>> waiting;
    std::uint32_t random = 1;
    HANDLE const running = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    HANDLE const thread;  // last, because the thread uses all members above
};
Worker& worker() {
    static auto* const only = new Worker;
    return *only;
}
std::atomic<bool> later{true};
// Not an error code: the next open is not made to fail.
constexpr std::uint64_t NO_FAILURE = 1ULL << 32;
std::atomic<std::uint64_t> next_open_failure{NO_FAILURE};
std::atomic<DWORD> code_of_close{0};  // with which closing a file ends the process; 0: not at all

std::atomic<DWORD> sector_size{SECTOR_SIZE};

bool onGrid(std::uint64_t number) { return number % std::max<DWORD>(sector_size, 1) == 0; }

BOOL refuse(DWORD error) {
    SetLastError(error);
    return FALSE;
}

BOOL start(Transfer request, DWORD right) {
    auto const file = found(request.file);
    if (file) {
        if ((file->access & right) == 0) return refuse(ERROR_ACCESS_DENIED);
        bool const aligned = onGrid(request.overlapped->Offset) && onGrid(request.length) &&
                             onGrid(reinterpret_cast<std::uintptr_t>(request.buffer));
        if (file->unbuffered && !aligned) return refuse(ERROR_INVALID_PARAMETER);
    }
    if (!file || !later || !worker().alive())
        return request.writes ? system_WriteFileEx(request.file, request.buffer, request.length, request.overlapped,
                                                   request.routine)
                              : system_ReadFileEx(request.file, request.buffer, request.length, request.overlapped,
                                                  request.routine);
    if (!DuplicateHandle(GetCurrentProcess(), GetCurrentThread(), GetCurrentProcess(), &request.issuer, 0, FALSE,
                         DUPLICATE_SAME_ACCESS))
        return FALSE;
    worker().add(std::make_unique<Transfer>(request));
    return TRUE;
}

HANDLE WINAPI ruled_CreateFileW(wchar_t const* name, DWORD access, DWORD share, SECURITY_ATTRIBUTES* security,
                                DWORD disposition, DWORD flags, HANDLE pattern) {
    bool const ruled = (flags & FILE_FLAG_OVERLAPPED) != 0;
    if (ruled) {
        if (auto const failure = next_open_failure.exchange(NO_FAILURE); failure != NO_FAILURE) {
            SetLastError(static_cast<DWORD>(failure));
            return INVALID_HANDLE_VALUE;
        }
    }
    HANDLE const file = system_CreateFileW(name, access, share, security, disposition, flags, pattern);
    DWORD const error = GetLastError();
    if (file != INVALID_HANDLE_VALUE && ruled) {
        worker();
        Locked const held(files_lock);
        files()[file] = {access, (flags & FILE_FLAG_NO_BUFFERING) != 0};
    }
    SetLastError(error);
    return file;
}

BOOL WINAPI ruled_CloseHandle(HANDLE handle) {
    if (DWORD const code = code_of_close; code != 0 && found(handle)) TerminateProcess(GetCurrentProcess(), code);
    {
        Locked const held(files_lock);
        files().erase(handle);
    }
    return system_CloseHandle(handle);
}

BOOL WINAPI ruled_ReadFileEx(HANDLE file, void* buffer, DWORD length, OVERLAPPED* overlapped,
                             LPOVERLAPPED_COMPLETION_ROUTINE routine) {
    return start({false, file, nullptr, buffer, length, overlapped, routine}, GENERIC_READ);
}

BOOL WINAPI ruled_WriteFileEx(HANDLE file, void const* buffer, DWORD length, OVERLAPPED* overlapped,
                              LPOVERLAPPED_COMPLETION_ROUTINE routine) {
    return start({true, file, nullptr, const_cast<void*>(buffer), length, overlapped, routine}, GENERIC_WRITE);
}

BOOL WINAPI ruled_SetEndOfFile(HANDLE file) {
    LARGE_INTEGER end;
    auto const open_file = found(file);
    if (open_file && open_file->unbuffered && SetFilePointerEx(file, {}, &end, FILE_CURRENT) &&
        !onGrid(static_cast<std::uint64_t>(end.QuadPart)))
        return refuse(ERROR_INVALID_PARAMETER);
    return system_SetEndOfFile(file);
}

BOOL WINAPI ruled_GetDiskFreeSpaceW(wchar_t const* volume, DWORD* sectors_per_cluster, DWORD* bytes_per_sector,
                                    DWORD* free_clusters, DWORD* clusters) {
    if (sector_size == 0) return refuse(ERROR_NOT_SUPPORTED);
    if (!system_GetDiskFreeSpaceW(volume, sectors_per_cluster, bytes_per_sector, free_clusters, clusters)) return FALSE;
    *bytes_per_sector = sector_size;
    return TRUE;
}

struct Rule {
    char const* name;
    void* replacement;
};
Rule const RULES[] = {
    {"CreateFileW", reinterpret_cast<void*>(&ruled_CreateFileW)},
    {"CloseHandle", reinterpret_cast<void*>(&ruled_CloseHandle)},
    {"ReadFileEx", reinterpret_cast<void*>(&ruled_ReadFileEx)},
    {"WriteFileEx", reinterpret_cast<void*>(&ruled_WriteFileEx)},
    {"SetEndOfFile", reinterpret_cast<void*>(&ruled_SetEndOfFile)},
    {"GetDiskFreeSpaceW", reinterpret_cast<void*>(&ruled_GetDiskFreeSpaceW)},
};

void replace(IMAGE_THUNK_DATA& slot, void* replacement) {
    DWORD before;
    if (!VirtualProtect(&slot, sizeof slot, PAGE_READWRITE, &before)) return;
    slot.u1.Function = reinterpret_cast<ULONG_PTR>(replacement);
    VirtualProtect(&slot, sizeof slot, before, &before);
}

[[maybe_unused]] bool const applied = [] {
    applyWindowsRules(GetModuleHandleW(nullptr));
    if (HMODULE const library = GetModuleHandleW(L"kelvonclip.dll")) applyWindowsRules(library);
    return true;
}();

}  // namespace

void applyWindowsRules(HMODULE module) {
    auto* const base = reinterpret_cast<char*>(module);
    auto const at = [base](auto offset) { return base + offset; };
    auto const* const dos = reinterpret_cast<IMAGE_DOS_HEADER const*>(base);
    auto const* const headers = reinterpret_cast<IMAGE_NT_HEADERS const*>(at(dos->e_lfanew));
    auto const& imports = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    for (auto* library = reinterpret_cast<IMAGE_IMPORT_DESCRIPTOR*>(at(imports.VirtualAddress)); library->Name != 0;
         ++library) {
        auto const* name = reinterpret_cast<IMAGE_THUNK_DATA*>(at(library->OriginalFirstThunk));
        auto* slot = reinterpret_cast<IMAGE_THUNK_DATA*>(at(library->FirstThunk));
        for (; name->u1.AddressOfData != 0; ++name, ++slot) {
            if (IMAGE_SNAP_BY_ORDINAL(name->u1.Ordinal)) continue;
            auto const* const text = reinterpret_cast<IMAGE_IMPORT_BY_NAME*>(at(name->u1.AddressOfData))->Name;
            for (Rule const& rule : RULES)
                if (std::strcmp(reinterpret_cast<char const*>(text), rule.name) == 0) replace(*slot, rule.replacement);
        }
    }
}

void setSectorSize(DWORD bytes) { sector_size = bytes; }

void transferLater(bool value) { later = value; }

void endWhenAFileIsClosed(DWORD exit_code) { code_of_close = exit_code; }

void failNextOpenWith(DWORD error) { next_open_failure = error; }

}  // namespace KelvonClip::test
