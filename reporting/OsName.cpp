// Builds the operating system's product name from the running version and the edition in the registry.
#include <winsock2.h>
#include <windows.h>

#include <utility>

#include "base/Handles.h"
#include "base/Log.h"
#include "reporting/OsInformation.h"

namespace {

constexpr DWORD kFirstBuildOfWindows11 = 22000;
constexpr const char* kUnknownVersion = "Unknown Windows Version";

std::string VersionName(const RTL_OSVERSIONINFOW& version) {
    if (version.dwMajorVersion == 10)
        return version.dwBuildNumber < kFirstBuildOfWindows11 ? "Windows 10" : "Windows 11";
    if (version.dwMajorVersion != 6) return kUnknownVersion;
    switch (version.dwMinorVersion) {
        case 3:
            return "Windows 8.1";
        case 2:
            return "Windows 8";
        case 1:
            return "Windows 7";
        case 0:
            return "Windows Vista";
        default:
            return kUnknownVersion;
    }
}

// The documented calls return the version that the executable's manifest names. RtlGetVersion returns the
// true version.
std::string VersionName() {
    using RtlGetVersion = LONG(WINAPI*)(RTL_OSVERSIONINFOW*);
    const HMODULE library = GetModuleHandleA("ntdll.dll");
    const FARPROC entry = library ? GetProcAddress(library, "RtlGetVersion") : nullptr;
    if (!entry) {
        LogError("RtlGetVersion not found in ntdll.dll");
        return kUnknownVersion;
    }
    RTL_OSVERSIONINFOW version{};
    version.dwOSVersionInfoSize = sizeof version;
    const auto call = reinterpret_cast<RtlGetVersion>(reinterpret_cast<void (*)()>(entry));
    if (const LONG status = call(&version)) {
        LogError("RtlGetVersion failed with status: %ld", status);
        return kUnknownVersion;
    }
    return VersionName(version);
}

std::string ReadText(HKEY key, const char* name, DWORD size) {
    std::string text(size, '\0');
    if (RegQueryValueExA(key, name, nullptr, nullptr, reinterpret_cast<BYTE*>(text.data()), &size) !=
        ERROR_SUCCESS)
        return "";
    text.resize(size);
    if (!text.empty() && text.back() == '\0') text.pop_back();
    return text;
}

std::string ReadNumber(HKEY key, const char* name) {
    DWORD number = 0, size = sizeof number;
    if (RegQueryValueExA(key, name, nullptr, nullptr, reinterpret_cast<BYTE*>(&number), &size) !=
        ERROR_SUCCESS)
        return "";
    return std::to_string(number);
}

// Returns a text value, or a number in decimal. Returns an empty text for any other type and when the value
// cannot be read.
std::string ReadValue(const char* subkey, const char* name) {
    UniqueRegistryKey key;
    DWORD type = REG_NONE, size = 0;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, subkey, 0, KEY_READ, key.Receive()) != ERROR_SUCCESS ||
        RegQueryValueExA(key.Get(), name, nullptr, &type, nullptr, &size) != ERROR_SUCCESS)
        return "";
    switch (type) {
        case REG_SZ:
        case REG_EXPAND_SZ:
            return ReadText(key.Get(), name, size);
        case REG_DWORD:
            return ReadNumber(key.Get(), name);
        default:
            return "";
    }
}

std::string Edition() {
    const std::string product = ReadValue("SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion", "ProductName");
    if (product.empty()) return "Unknown Edition";
    LogInfo("OS Product type from Windows Registry: %s", product);
    constexpr std::pair<const char*, const char*> kEditions[] = {{"Enterprise", "Enterprise"},
                                                                 {"Professional", "Professional"},
                                                                 {"Pro", "Professional"},
                                                                 {"Server", "Server"},
                                                                 {"Home", "Home"},
                                                                 {"Education", "Education"}};
    for (const auto& [word, edition] : kEditions)
        if (product.find(word) != std::string::npos) return edition;
    return "Personal";
}

}  // namespace

std::string GetOsName() {
    return "Microsoft " + VersionName() + " " + Edition();
}
