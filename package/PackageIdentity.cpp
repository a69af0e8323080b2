#include "package/PackageIdentity.h"

#include <winsock2.h>
#include <windows.h>

#include <cstdint>
#include <cstring>

#include "base/Log.h"
#include "package/PackageDeployment.h"
#include "state/ServiceState.h"

// Some SDKs lack appmodel.h, which declares these functions.
extern "C" {
LONG WINAPI GetCurrentPackageFullName(uint32_t* length, WCHAR* fullName);
LONG WINAPI GetCurrentPackagePath(uint32_t* length, WCHAR* path);
LONG WINAPI GetCurrentPackageFamilyName(uint32_t* length, WCHAR* familyName);
}

namespace {

using PackageText = LONG(WINAPI*)(uint32_t*, WCHAR*);

// Converts to the system's ANSI code page. False with the last error.
bool ToAnsi(const std::wstring& text, std::string& result) {
    const int size = WideCharToMultiByte(CP_ACP, 0, text.c_str(), -1, nullptr, 0, nullptr, nullptr);
    if (size <= 0) return false;
    std::string converted(static_cast<size_t>(size), '\0');
    if (WideCharToMultiByte(CP_ACP, 0, text.c_str(), -1, converted.data(), size, nullptr, nullptr) <= 0)
        return false;
    converted.resize(std::strlen(converted.c_str()));
    result = std::move(converted);
    return true;
}

// Returns 0 or the error. A text that cannot be converted counts as one that the system does not return:
// without the package's path, the service would run programs of another folder.
LONG Read(PackageText function, uint32_t length, std::string& result) {
    std::wstring text(length, L'\0');
    if (const LONG error = function(&length, text.data())) return error;
    if (!ToAnsi(text, result)) return static_cast<LONG>(GetLastError());
    return ERROR_SUCCESS;
}

}  // namespace

bool IsRunningFromMSIXPackage() {
    constexpr const char* kName = "IsRunningFromMSIXPackage";
    PackageContext& context = g_pServiceState->m_packageContext;
    uint32_t length = 0;
    LONG error = GetCurrentPackageFullName(&length, nullptr);
    if (error == APPMODEL_ERROR_NO_PACKAGE) {
        LogInfo("%s: Process has no package identity: %d", kName, error);
        return false;
    }
    if (error != ERROR_INSUFFICIENT_BUFFER) {
        LogInfo("%s: GetCurrentPackageFullName failed with error: %d", kName, error);
        return false;
    }
    std::string fullName;
    error = Read(&GetCurrentPackageFullName, length, fullName);
    if (error != ERROR_SUCCESS) {
        LogError("%s: GetCurrentPackageFullName 2nd call failed with error: %d", kName, error);
        return false;
    }
    LogInfo("%s: Package Full Name: %s", kName, fullName);
    length = 0;
    error = GetCurrentPackagePath(&length, nullptr);
    if (error != ERROR_INSUFFICIENT_BUFFER) {
        LogError("%s: GetCurrentPackagePath failed with error: %d", kName, error);
        return false;
    }
    error = Read(&GetCurrentPackagePath, length, context.m_packagePath);
    if (error != ERROR_SUCCESS) {
        LogError("%s: GetCurrentPackagePath 2nd call failed with error: %d", kName, error);
        return false;
    }
    context.m_packageFullName = fullName;
    LogInfo("%s: Package Full Path: %s", kName, context.m_packagePath);
    return true;
}

std::string PackageFamilyName() {
    std::string familyName;
    uint32_t length = 0;
    if (GetCurrentPackageFamilyName(&length, nullptr) == ERROR_INSUFFICIENT_BUFFER && length > 1)
        Read(&GetCurrentPackageFamilyName, length, familyName);
    return familyName;
}
