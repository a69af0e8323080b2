#include "reporting/OsInformation.h"

#include <winsock2.h>
#include <windows.h>

#include <string_view>

#include "base/FieldText.h"
#include "base/Log.h"
#include "base/Version.h"
#include "base/WideText.h"
#include "reporting/WMIInterface.h"
#include "state/ServiceState.h"

namespace {

constexpr uint16_t kReservedWord = 65535;

void FillDomainName(OsInfo& info) {
    char domain[sizeof info.DomainName] = "";
    DWORD size = sizeof domain;
    if (GetComputerNameExA(ComputerNameDnsDomain, domain, &size)) {
        CopyToField(info.DomainName, domain);
        LogInfo("%s: DNS domain: %s", "WriteOSInfoToMPM", domain);
    } else {
        CopyToField(info.DomainName, "N/A");
    }
}

const wchar_t* Architecture() {
    SYSTEM_INFO system{};
    GetNativeSystemInfo(&system);
    return system.wProcessorArchitecture == PROCESSOR_ARCHITECTURE_INTEL ? L"32-bit" : L"64-bit";
}

void LogRecord(const OsInfo& info) {
    LogInfo("OS Name: %ls", info.OSName);
    LogInfo("OS Other Type description: %ls", info.OtherTypeDescription);
    LogInfo("OS Version: %ls", info.Version);
    LogInfo("OS DomainName: %s", info.DomainName);
    LogInfo("OS Host Name: %s", info.HostName);
    LogInfo("OS Type: %d", info.OSType);
    LogInfo("OS ZEL Version: %s", info.ZELVersion);
}

}  // namespace

void WriteOSInfoToMPM(WMIInterface& wmi) {
    OsInfo info{};
    wmi.GetOSinformation(&info);
    // The field stays empty when the call fails.
    gethostname(info.HostName, sizeof info.HostName);
    CopyToField(info.ZELVersion, kServiceVersion);
    FillDomainName(info);
    const std::string name = GetOsName();
    FillUtf16(info.OSName, std::wstring(name.begin(), name.end()));
    FillUtf16(info.OtherTypeDescription, Architecture());
    LogRecord(info);
    info.OSReservedWord = kReservedWord;
    g_pServiceState->m_mailBoxDriverInterface.WriteOsInfo(&info);
}
