#include "reporting/HostNames.h"

#include <winsock2.h>
#include <windows.h>

#include "base/Log.h"

bool GetHostAndDnsDomain(std::string& host, std::string& domain) {
    char hostText[256] = "";
    if (gethostname(hostText, static_cast<int>(sizeof hostText)) != 0) {
        LogError("gethostname failed with error: %d", WSAGetLastError());
        return false;
    }
    host = hostText;
    LogInfo("Hostname: %s", host);
    char domainText[128] = "";
    DWORD size = sizeof domainText;
    if (!GetComputerNameExA(ComputerNameDnsDomain, domainText, &size)) {
        domain = "N/A";
        return false;
    }
    domain = domainText;
    LogInfo("DNS domain: %s", domain);
    return true;
}
