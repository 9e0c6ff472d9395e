#include "platform/host.h"

#include <windows.h>

#include <algorithm>
#include <ctime>
#include <iterator>
#include <rpc.h>
#include <string>
#include <vector>

namespace KelvonClip::platform {

namespace {

bool process_is_ending = false;  // written when only one thread is left

}  // namespace

// The 64-bit call: time_t has 32 bits here and ends in 2038.
std::uint64_t secondsSince1970() { return static_cast<std::uint64_t>(_time64(nullptr)); }

// KEEP: the line end that Windows puts after a message stays; a code for which Windows has no text gives an empty one.
std::u16string lastErrorText() {
    DWORD const code = GetLastError();
    if (code == 0) return {};
    std::vector<wchar_t> text(32768);
    DWORD const length = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM, nullptr, code, 0, text.data(),
                                        static_cast<DWORD>(text.size()), nullptr);
    return {text.data(), text.data() + length};
}

bool newUuid(Uuid& uuid) {
    UUID made;
    if (UuidCreate(&made) != RPC_S_OK) return false;
    uuid.time_low = made.Data1;
    uuid.time_mid = made.Data2;
    uuid.time_high_and_version = made.Data3;
    std::copy(std::begin(made.Data4), std::end(made.Data4), uuid.rest);
    return true;
}

std::u32string fileBesideHeader(std::u32string const&, std::u32string const& text) { return text; }

bool renameToNewName(std::u16string const& from, std::u16string const& to) {
    std::wstring const old_name(from.begin(), from.end()), new_name(to.begin(), to.end());
    return MoveFileExW(old_name.c_str(), new_name.c_str(), MOVEFILE_WRITE_THROUGH) != 0;
}

bool removeFile(std::u16string const& name) { return DeleteFileW(std::wstring(name.begin(), name.end()).c_str()) != 0; }

bool otherThreadsAreGone() { return process_is_ending; }

std::uint32_t forkCount() { return 0; }

}  // namespace KelvonClip::platform

// Windows terminates all threads but one before it tells DLLs that the process is ending. The C++ run-time library
// passes that on to this entry point before it destroys the DLL's static objects. A program that links the library
// statically never gets the call: its static objects are destroyed earlier, while the other threads are alive.
extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, void* process_ends) {
    if (reason == DLL_PROCESS_DETACH && process_ends != nullptr) KelvonClip::platform::process_is_ending = true;
    return TRUE;
}
