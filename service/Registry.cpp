#include "service/Registry.h"

#include <cstring>
#include <memory>
#include <new>

#include "base/Handles.h"
#include "base/Log.h"

namespace {

constexpr int kAttempts = 10;
constexpr DWORD kAttemptMilliseconds = 1000;
constexpr DWORD kBlock = 1024;
constexpr DWORD kMaxBlocks = 1024;  // a value that keeps growing is given up

bool OpenKey(UniqueRegistryKey& key, HKEY rootKey, const char* subkey) {
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        const LONG result = RegOpenKeyExA(rootKey, subkey, 0, KEY_READ, key.Receive());
        // Every attempt logs this line and waits one second, also a successful one.
        LogWarn("Couldn't read registy with RegOpenKeyEx() API in attempt %d", attempt);
        Sleep(kAttemptMilliseconds);
        if (result != ERROR_SUCCESS) continue;
        if (!key) LogInfo("RegOpenKeyEx() failed to open registry key.");
        return static_cast<bool>(key);
    }
    LogInfo("RegOpenKeyEx() encountered an error while reading form registry: %d.", ERROR_CANTOPEN);
    return false;
}

// Returns the value's bytes with a terminating NUL, or null when there is no memory; `error` is the error of
// the read. After an error the bytes are undefined.
std::unique_ptr<char[]> QueryValue(HKEY key, const char* valueName, LONG& error) {
    std::unique_ptr<char[]> buffer;
    for (DWORD blocks = 1; blocks <= kMaxBlocks; ++blocks) {
        DWORD size = blocks * kBlock;
        buffer.reset(new (std::nothrow) char[size + 1]);
        if (!buffer) {
            if (blocks == 1) {
                LogInfo("Failed to allocate memory while reading from registry.");
            } else {
                LogInfo("Failed to allocate memory while reallocating memory from registry.");
            }
            return nullptr;
        }
        error =
            RegQueryValueExA(key, valueName, nullptr, nullptr, reinterpret_cast<BYTE*>(buffer.get()), &size);
        if (error == ERROR_SUCCESS) buffer[size] = '\0';
        if (error != ERROR_MORE_DATA) break;
    }
    return buffer;
}

}  // namespace

bool ReadRegistryString(std::string& result, HKEY rootKey, const char* subkey, const char* valueName) {
    if (!rootKey) {
        LogInfo("hKeyParent null while reading from registry.");
        return false;
    }
    LogInfo("hKeyParent is passed.");
    if (!subkey) {
        LogInfo("subkey null while reading from registry.");
        return false;
    }
    LogInfo("subkey: %s.", subkey);
    if (!valueName) {
        LogInfo("valueName null while reading from registry.");
        return false;
    }
    LogInfo("valueName: %s.", valueName);
    UniqueRegistryKey key;
    if (!OpenKey(key, rootKey, subkey)) return false;
    LONG error = ERROR_SUCCESS;
    const std::unique_ptr<char[]> value = QueryValue(key.Get(), valueName, error);
    if (!value) return false;
    key.Reset();
    if (error != ERROR_SUCCESS) {
        // The registry calls return their errors; the log has always shown the thread's last error here.
        LogInfo("RegQueryValueEx() encountered an error while reading form registry: %d.", GetLastError());
        return false;
    }
    LogInfo("Read from registry successful.");
    result = value.get();
    return true;
}

bool GetInstallationPath(std::string& path, const char* valueName) {
    if (!valueName) {
        LogInfo("Installation path is empty.");
        return false;
    }
    if (ReadRegistryString(path, HKEY_LOCAL_MACHINE,
                           "SOFTWARE\\WOW6432Node\\Tarvix\\Tarvix Manageability Service", valueName)) {
        LogInfo("Installed registry path: = %s", path);
    } else {
        LogInfo("Reading registry failed.");
    }
    if (path.empty()) {
        LogError("Service path is empty");
        return false;
    }
    return true;
}
