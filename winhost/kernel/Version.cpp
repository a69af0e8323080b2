// The system's version, as it is and as programs without a manifest see it.
#include <winbase.h>

#include "winhost/core/Gate.h"
#include "winhost/core/Results.h"
#include "winhost/kernel/SystemModules.h"
#include "winhost/pc/OsVersion.h"
#include "winhost/pc/Pc.h"

namespace {

// The newest version that a program without a manifest sees: that of Windows 8.
constexpr winhost::OsVersion kNewestWithoutManifest = {6, 2, 9200};

winhost::OsVersion PcVersion() {
    return winhost::ParseOsVersion(winhost::Pc::Instance().Description().osVersion)
        .value_or(winhost::OsVersion{});
}

void Fill(OSVERSIONINFOW& information, const winhost::OsVersion& version) {
    const DWORD size = information.dwOSVersionInfoSize;
    information = {};
    information.dwOSVersionInfoSize = size;
    information.dwPlatformId = VER_PLATFORM_WIN32_NT;
    information.dwMajorVersion = version.major;
    information.dwMinorVersion = version.minor;
    information.dwBuildNumber = version.build;
}

// NTSTATUS, 0 for success. Fills the plain structure alone.
LONG WINAPI RtlGetVersion(PRTL_OSVERSIONINFOW information) {
    WINHOST_GATE_CODE("RtlGetVersion");
    Fill(*information, PcVersion());
    return 0;
}

}  // namespace

BOOL GetVersionExW(LPOSVERSIONINFOW information) {
    WINHOST_GATE("GetVersionExW", FALSE);
    if (information->dwOSVersionInfoSize != sizeof *information)
        return winhost::Fail(ERROR_INSUFFICIENT_BUFFER);
    const winhost::OsVersion version = PcVersion();
    const auto isNewer = [](const winhost::OsVersion& one, const winhost::OsVersion& other) {
        return one.major != other.major ? one.major > other.major : one.minor > other.minor;
    };
    Fill(*information, isNewer(version, kNewestWithoutManifest) ? kNewestWithoutManifest : version);
    return TRUE;
}

namespace winhost {

std::vector<Export> NtdllExports() {
    return {{"RtlGetVersion", Erased(&RtlGetVersion)}};
}

}  // namespace winhost
