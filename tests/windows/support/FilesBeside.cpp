#include "tests/windows/support/FilesBeside.h"

#include <winsock2.h>
#include <windows.h>

#include <mutex>

namespace {

constexpr DWORD kSharedByAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

std::string PathOf(const std::string& name) {
    static const char inThisModule = 0;
    HMODULE module = nullptr;
    char path[MAX_PATH] = "";
    constexpr DWORD kByAddress =
        GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT;
    GetModuleHandleExA(kByAddress, &inThisModule, &module);
    GetModuleFileNameA(module, path, sizeof path);
    const std::string own = path;
    return own.substr(0, own.rfind('\\') + 1) + name;
}

}  // namespace

std::optional<std::string> ReadBeside(const std::string& name) {
    const HANDLE file =
        CreateFileA(PathOf(name).c_str(), GENERIC_READ, kSharedByAll, nullptr, OPEN_EXISTING, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE) return std::nullopt;
    std::string text;
    char part[4096];
    DWORD size = 0;
    while (ReadFile(file, part, sizeof part, &size, nullptr) && size != 0)
        text.append(part, size);
    CloseHandle(file);
    return text;
}

void AppendLineBeside(const std::string& name, const std::string& line) {
    // Never destroyed: threads of the process may call to its end.
    static std::mutex& mutex = *new std::mutex;
    const std::lock_guard lock(mutex);
    const HANDLE file =
        CreateFileA(PathOf(name).c_str(), FILE_APPEND_DATA, kSharedByAll, nullptr, OPEN_ALWAYS, 0, nullptr);
    const std::string ended = line + "\n";
    DWORD written = 0;
    WriteFile(file, ended.data(), static_cast<DWORD>(ended.size()), &written, nullptr);
    CloseHandle(file);
}
