// The registry, as the PC's description has it: keys and values are found whatever their case, and a key
// exists when it or one below it is described. Values are REG_SZ, REG_EXPAND_SZ or REG_DWORD.
#include <strings.h>
#include <winreg.h>
#include <windows.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <optional>
#include <string>

#include "winhost/core/Gate.h"
#include "winhost/core/HandleTable.h"
#include "winhost/pc/Pc.h"

using winhost::HandleTable;

namespace {

constexpr REGSAM kOtherView = KEY_WOW64_32KEY;

class RegistryKey final : public winhost::Object {
  public:
    explicit RegistryKey(std::string path) : m_path(std::move(path)) {}
    bool IsClosedByCloseHandle() const override { return false; }
    const std::string& Path() const { return m_path; }

  private:
    const std::string m_path;
};

bool BeginsWith(const std::string& text, const std::string& start) {
    return strncasecmp(text.c_str(), start.c_str(), start.size()) == 0;
}

bool SameName(const std::string& a, const std::string& b) {
    return strcasecmp(a.c_str(), b.c_str()) == 0;
}

// Empty for what is no key. There is one root.
std::string PathOf(HKEY key) {
    if (key == HKEY_LOCAL_MACHINE) return "HKEY_LOCAL_MACHINE";
    const auto object = HandleTable::Instance().Find<RegistryKey>(reinterpret_cast<HANDLE>(key));
    return object ? object->Path() : std::string();
}

struct Value {
    DWORD type;
    std::string data;
};

Value AsValue(const std::string& text, DWORD type) {
    return {type, text + '\0'};
}
Value AsValue(uint32_t number, DWORD type) {
    return {type, std::string(reinterpret_cast<const char*>(&number), sizeof number)};
}

template <class Keys>
bool Describes(const Keys& keys, const std::string& path) {
    return std::any_of(keys.begin(), keys.end(), [&](const auto& key) {
        return SameName(key.first, path) || BeginsWith(key.first, path + "\\");
    });
}

bool Exists(const std::string& path) {
    if (path.find('\\') == std::string::npos) return true;  // a root
    const winhost::PcDescription pc = winhost::Pc::Instance().Description();
    return Describes(pc.registry, path) || Describes(pc.registryExpandTexts, path) ||
           Describes(pc.registryNumbers, path);
}

template <class Keys>
std::optional<Value> FindIn(const Keys& keys, DWORD type, const std::string& path, const std::string& name) {
    for (const auto& [described, values] : keys) {
        if (!SameName(described, path)) continue;
        for (const auto& [valueName, value] : values)
            if (SameName(valueName, name)) return AsValue(value, type);
    }
    return std::nullopt;
}

std::optional<Value> FindValue(const std::string& path, const std::string& name) {
    const winhost::PcDescription pc = winhost::Pc::Instance().Description();
    if (const auto text = FindIn(pc.registry, REG_SZ, path, name)) return text;
    if (const auto text = FindIn(pc.registryExpandTexts, REG_EXPAND_SZ, path, name)) return text;
    return FindIn(pc.registryNumbers, REG_DWORD, path, name);
}

}  // namespace

LSTATUS RegOpenKeyExA(HKEY hKey, LPCSTR lpSubKey, DWORD ulOptions, REGSAM samDesired, PHKEY phkResult) {
    WINHOST_GATE_CODE("RegOpenKeyExA");
    // There is one view of the registry, that of a 64-bit process, and no symbolic link to open.
    if (!phkResult || ulOptions != 0 || (samDesired & kOtherView)) return ERROR_INVALID_PARAMETER;
    *phkResult = nullptr;
    std::string path = PathOf(hKey);
    if (path.empty()) return ERROR_INVALID_HANDLE;
    if (lpSubKey && *lpSubKey) {
        if (*lpSubKey == '\\') return ERROR_BAD_PATHNAME;
        path += std::string("\\") + lpSubKey;
    }
    if (!Exists(path)) return ERROR_FILE_NOT_FOUND;
    const HANDLE handle = HandleTable::Instance().Add(std::make_shared<RegistryKey>(std::move(path)));
    if (!handle) return ERROR_NO_SYSTEM_RESOURCES;
    *phkResult = reinterpret_cast<HKEY>(handle);
    return ERROR_SUCCESS;
}

LSTATUS RegQueryValueExA(HKEY hKey, LPCSTR lpValueName, LPDWORD lpReserved, LPDWORD lpType, LPBYTE lpData,
                         LPDWORD lpcbData) {
    WINHOST_GATE_CODE("RegQueryValueExA");
    if (lpReserved || (lpData && !lpcbData)) return ERROR_INVALID_PARAMETER;
    const std::string path = PathOf(hKey);
    if (path.empty()) return ERROR_INVALID_HANDLE;
    const std::optional<Value> value = FindValue(path, lpValueName ? lpValueName : "");
    if (!value) return ERROR_FILE_NOT_FOUND;
    if (lpType) *lpType = value->type;
    if (!lpcbData) return ERROR_SUCCESS;
    const DWORD room = *lpcbData;
    const DWORD needed = static_cast<DWORD>(value->data.size());
    *lpcbData = needed;
    if (!lpData) return ERROR_SUCCESS;
    if (room < needed) return ERROR_MORE_DATA;
    std::memcpy(lpData, value->data.data(), needed);
    return ERROR_SUCCESS;
}

LSTATUS RegCloseKey(HKEY hKey) {
    WINHOST_GATE_CODE("RegCloseKey");
    if (hKey == HKEY_LOCAL_MACHINE) return ERROR_SUCCESS;
    return HandleTable::Instance().Close<RegistryKey>(reinterpret_cast<HANDLE>(hKey)) ? ERROR_SUCCESS
                                                                                      : ERROR_INVALID_HANDLE;
}
