// The identity of the process's package.
#include <appmodel.h>
#include <winbase.h>

#include <algorithm>
#include <string>

#include "testbed/Utf8.h"
#include "winhost/core/Gate.h"
#include "winhost/pc/Pc.h"

namespace {

LONG Answer(std::string winhost::Package::*part, uint32_t* length, WCHAR* buffer) {
    if (!length || (!buffer && *length != 0)) return ERROR_INVALID_PARAMETER;
    const winhost::Package package = winhost::Pc::Instance().Get(&winhost::PcDescription::package);
    const std::wstring text = testbed::FromUtf8(package.*part);
    if (package.fullName.empty() || text.empty()) return APPMODEL_ERROR_NO_PACKAGE;
    const uint32_t room = *length;
    *length = static_cast<uint32_t>(text.size() + 1);
    if (room < *length) return ERROR_INSUFFICIENT_BUFFER;
    std::copy_n(text.c_str(), *length, buffer);
    return ERROR_SUCCESS;
}

}  // namespace

LONG GetCurrentPackageFullName(uint32_t* length, WCHAR* fullName) {
    WINHOST_GATE_CODE("GetCurrentPackageFullName");
    return Answer(&winhost::Package::fullName, length, fullName);
}

LONG GetCurrentPackagePath(uint32_t* length, WCHAR* path) {
    WINHOST_GATE_CODE("GetCurrentPackagePath");
    return Answer(&winhost::Package::path, length, path);
}

LONG GetCurrentPackageFamilyName(uint32_t* length, WCHAR* familyName) {
    WINHOST_GATE_CODE("GetCurrentPackageFamilyName");
    return Answer(&winhost::Package::familyName, length, familyName);
}
