// Background tasks on the process's default thread pool.
#include "platform/task_pool.h"

#include <windows.h>

#include <cstddef>
#include <memory>
#include <system_error>
#include <utility>

#include "platform/recycled_memory.h"

namespace KelvonClip::platform {

namespace {

// A task in the pool, allocated from recycled memory.
struct Task {
    static void* operator new(std::size_t bytes) { return takeRecycled(bytes); }
    static void operator delete(void* memory, std::size_t bytes) { giveRecycled(memory, bytes); }

    std::function<void()> function;
};

// A named function: a lambda does not convert to a __stdcall callback on 32-bit Windows.
void CALLBACK runTask(TP_CALLBACK_INSTANCE*, void* context) {
    std::unique_ptr<Task> const task(static_cast<Task*>(context));
    task->function();
}

struct Environment {
    TP_CALLBACK_ENVIRON value;

    Environment() {
        InitializeThreadpoolEnvironment(&value);
        // Tasks block on I/O and on each other, so the pool must be allowed to grow.
        SetThreadpoolCallbackRunsLong(&value);
        // Keeps this module loaded until the task has returned, even if the program unloads it meanwhile.
        HMODULE module = nullptr;
        if (GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                               reinterpret_cast<wchar_t const*>(&runTask), &module))
            SetThreadpoolCallbackLibrary(&value, module);
    }
};

}  // namespace

void runInBackground(std::function<void()> task) {
    Environment environment;
    auto context = std::make_unique<Task>(Task{std::move(task)});
    if (!TrySubmitThreadpoolCallback(&runTask, context.get(), &environment.value))
        throw std::system_error(static_cast<int>(GetLastError()), std::system_category(),
                                "TrySubmitThreadpoolCallback");
    (void)context.release();  // now owned by the callback
}

}  // namespace KelvonClip::platform
