#include "tests/windows/wlanapi/WlanFile.h"

#include <mutex>
#include <sstream>

namespace {

constexpr DWORD kSharedByAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

// The path of a file beside this DLL.
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

std::optional<std::string> ReadWhole(const std::string& name) {
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

}  // namespace

WlanFile WlanFile::Read() {
    WlanFile file;
    std::istringstream lines(ReadWhole("wlan.txt").value_or(""));
    for (std::string line; std::getline(lines, line);) {
        // "fail CALL" is one key.
        const size_t blank = line.find(' ', line.starts_with("fail ") ? 5 : 0);
        if (blank != std::string::npos) file.m_values[line.substr(0, blank)] = line.substr(blank + 1);
    }
    return file;
}

std::string WlanFile::Text(const std::string& key) const {
    const auto found = m_values.find(key);
    return found == m_values.end() ? "" : found->second;
}

DWORD WlanFile::Number(const std::string& key) const {
    const std::string text = Text(key);
    return text.empty() ? 0 : static_cast<DWORD>(std::stoul(text));
}

std::optional<std::string> ReadProfile(const std::string& name) {
    return ReadWhole(name + ".xml");
}

void RecordCall(const std::string& call, DWORD error) {
    // Never destroyed: threads of the process may call to its end.
    static std::mutex& mutex = *new std::mutex;
    const std::lock_guard lock(mutex);
    const HANDLE file = CreateFileA(PathOf("wlan.calls").c_str(), FILE_APPEND_DATA, kSharedByAll, nullptr,
                                    OPEN_ALWAYS, 0, nullptr);
    const std::string line = call + " " + std::to_string(error) + "\n";
    DWORD written = 0;
    WriteFile(file, line.data(), static_cast<DWORD>(line.size()), &written, nullptr);
    CloseHandle(file);
}
