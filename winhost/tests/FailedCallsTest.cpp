// Calls that the gate makes fail: each returns its failure with the error that was asked for. The gate comes
// before the arguments, so that none are needed.
#include <winsock2.h>

#include <appmodel.h>
#include <iphlpapi.h>
#include <lm.h>
#include <mmsystem.h>
#include <powrprof.h>
#include <stdlib.h>
#include <time.h>
#include <tlhelp32.h>
#include <wincrypt.h>
#include <winhttp.h>
#include <winsvc.h>
#include <wlanapi.h>
#include <wtsapi32.h>

#include "winhost/tests/WinsockFixture.h"

namespace {

struct FailedCall {
    const char* name;
    std::function<int64_t()> error;
};

constexpr HANDLE kNone = nullptr;

const FailedCall kFailedCalls[] = {
    // Files and pipes.
    {"CopyFileA", [] { return ErrorOf(CopyFileA("", "", FALSE)); }},
    {"CreateNamedPipeA", [] { return ErrorOf(CreateNamedPipeA("", 0, 0, 0, 0, 0, 0, nullptr)); }},
    {"ConnectNamedPipe", [] { return ErrorOf(ConnectNamedPipe(kNone, nullptr)); }},
    {"FlushFileBuffers", [] { return ErrorOf(FlushFileBuffers(kNone)); }},
    {"WriteFile", [] { return ErrorOf(WriteFile(kNone, nullptr, 0, nullptr, nullptr)); }},
    // Processes, threads, libraries and the system.
    {"CreateProcessA",
     [] {
         return ErrorOf(
             CreateProcessA("", nullptr, nullptr, nullptr, FALSE, 0, nullptr, nullptr, nullptr, nullptr));
     }},
    {"CreateProcessAsUserA",
     [] {
         return ErrorOf(CreateProcessAsUserA(kNone, "", nullptr, nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                                             nullptr, nullptr));
     }},
    {"CreateThread", [] { return ErrorOf(CreateThread(nullptr, 0, nullptr, nullptr, 0, nullptr)); }},
    {"OpenThread", [] { return ErrorOf(OpenThread(SYNCHRONIZE, FALSE, 0)); }},
    {"CreateToolhelp32Snapshot", [] { return ErrorOf(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0)); }},
    {"system", [] { return system("") == -1 ? GetLastError() : 0; }},
    {"LoadLibraryW", [] { return ErrorOf(LoadLibraryW(L"")); }},
    {"GetProcAddress", [] { return ErrorOf(GetProcAddress(nullptr, "")); }},
    {"FreeLibrary", [] { return ErrorOf(FreeLibrary(nullptr)); }},
    {"GetVersionExW", [] { return ErrorOf(GetVersionExW(nullptr)); }},
    {"GetCurrentPackagePath", [] { return GetCurrentPackagePath(nullptr, nullptr); }},
    {"GetPwrCapabilities", [] { return ErrorOf(GetPwrCapabilities(nullptr)); }},
    {"WTSQuerySessionInformationA",
     [] { return ErrorOf(WTSQuerySessionInformationA(kNone, 1, WTSSessionInfoEx, nullptr, nullptr)); }},
    {"timeBeginPeriod", [] { return timeBeginPeriod(1); }},
    {"localtime_s", [] { return localtime_s(nullptr, nullptr); }},
    // Services.
    {"OpenSCManagerA", [] { return ErrorOf(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_CONNECT)); }},
    {"OpenServiceA", [] { return ErrorOf(OpenServiceA(nullptr, "", 0)); }},
    {"QueryServiceConfigA", [] { return ErrorOf(QueryServiceConfigA(nullptr, nullptr, 0, nullptr)); }},
    {"ChangeServiceConfigA",
     [] {
         return ErrorOf(ChangeServiceConfigA(nullptr, 0, 0, 0, nullptr, nullptr, nullptr, nullptr, nullptr,
                                             nullptr, nullptr));
     }},
    {"StartServiceA", [] { return ErrorOf(StartServiceA(nullptr, 0, nullptr)); }},
    {"QueryServiceStatus", [] { return ErrorOf(QueryServiceStatus(nullptr, nullptr)); }},
    {"ControlService", [] { return ErrorOf(ControlService(nullptr, SERVICE_CONTROL_STOP, nullptr)); }},
    {"CloseServiceHandle", [] { return ErrorOf(CloseServiceHandle(nullptr)); }},
    // Accounts and certificates.
    {"NetUserChangePassword", [] { return NetUserChangePassword(nullptr, nullptr, nullptr, nullptr); }},
    {"CertOpenSystemStoreA", [] { return ErrorOf(CertOpenSystemStoreA(0, "ROOT")); }},
    // The network.
    {"WSAStartup", [] { return WSAStartup(0, nullptr); }},
    {"socket", [] { return SocketErrorOf(socket(0, 0, 0)); }},
    {"recv", [] { return SocketErrorOf(recv(0, nullptr, 0, 0)); }},
    {"gethostname", [] { return SocketErrorOf(gethostname(nullptr, 0)); }},
    {"GetIfTable", [] { return GetIfTable(nullptr, nullptr, FALSE); }},
    {"GetIpAddrTable", [] { return GetIpAddrTable(nullptr, nullptr, FALSE); }},
    {"GetIfEntry", [] { return GetIfEntry(nullptr); }},
    {"WinHttpOpen", [] { return ErrorOf(WinHttpOpen(nullptr, 0, nullptr, nullptr, 0)); }},
    {"WinHttpConnect", [] { return ErrorOf(WinHttpConnect(nullptr, L"", 0, 0)); }},
    {"WinHttpOpenRequest",
     [] { return ErrorOf(WinHttpOpenRequest(nullptr, L"", L"", nullptr, nullptr, nullptr, 0)); }},
    {"WinHttpSetTimeouts", [] { return ErrorOf(WinHttpSetTimeouts(nullptr, 0, 0, 0, 0)); }},
    {"WinHttpSendRequest", [] { return ErrorOf(WinHttpSendRequest(nullptr, nullptr, 0, nullptr, 0, 0, 0)); }},
    {"WlanRegisterNotification",
     [] { return WlanRegisterNotification(kNone, 0, TRUE, nullptr, nullptr, nullptr, nullptr); }},
    {"WlanEnumInterfaces", [] { return WlanEnumInterfaces(kNone, nullptr, nullptr); }},
    {"WlanQueryInterface",
     [] {
         return WlanQueryInterface(kNone, nullptr, wlan_intf_opcode_channel_number, nullptr, nullptr, nullptr,
                                   nullptr);
     }},
    {"WlanGetProfile",
     [] { return WlanGetProfile(kNone, nullptr, L"", nullptr, nullptr, nullptr, nullptr); }},
    {"WlanGetNetworkBssList",
     [] {
         return WlanGetNetworkBssList(kNone, nullptr, nullptr, dot11_BSS_type_any, FALSE, nullptr, nullptr);
     }},
};

using FailedCalls = PcFixture;

}  // namespace

TEST_F(FailedCalls, ReturnTheErrorThatWasAskedFor) {
    constexpr uint32_t kError = 4711;  // of no other reason
    for (const FailedCall& call : kFailedCalls) {
        Fail(call.name, kError);
        EXPECT_EQ(kError, call.error()) << call.name;
    }
}
