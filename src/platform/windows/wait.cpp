// Alertable waits on Windows semaphores: the system runs the calling thread's completion routines inside the wait.
#include "platform/wait.h"

#include <windows.h>

#include <new>
#include <system_error>

namespace KelvonClip::platform {

static_assert(WAIT_FOREVER == INFINITE);

struct HostSemaphore::State {
    HANDLE handle;
};

inline HostSemaphore::State& HostSemaphore::state() { return *std::launder(reinterpret_cast<State*>(host_state)); }

HostSemaphore::HostSemaphore(std::uint32_t initial, std::uint32_t max) {
    static_assert(sizeof(State) <= sizeof host_state);
    HANDLE const handle = CreateSemaphoreW(nullptr, static_cast<LONG>(initial), static_cast<LONG>(max), nullptr);
    // Windows has no semaphore with a maximum of 0. Without a handle every post and wait fails, as it should.
    if (handle == nullptr && max != 0)
        throw std::system_error(static_cast<int>(GetLastError()), std::system_category(), "CreateSemaphoreW");
    new (host_state) State{handle};
}

HostSemaphore::~HostSemaphore() {
    if (state().handle != nullptr) CloseHandle(state().handle);
}

// A waiter may destroy the object as soon as the unit is released: no member is accessed after the call.
bool HostSemaphore::post(std::uint32_t count) {
    return count == 0 || ReleaseSemaphore(state().handle, static_cast<LONG>(count), nullptr) != FALSE;
}

WaitResult HostSemaphore::waitAlertable(std::uint32_t timeout_ms) {
    switch (WaitForSingleObjectEx(state().handle, timeout_ms, TRUE)) {
    case WAIT_OBJECT_0:
        return WaitResult::taken;
    case WAIT_TIMEOUT:
        return WaitResult::timed_out;
    case WAIT_IO_COMPLETION:
        return WaitResult::completed_io;
    default:
        return WaitResult::failed;
    }
}

}  // namespace KelvonClip::platform
