#include "tests/faults/FailureTable.h"

#include <unordered_map>

#include "tests/faults/Injector.h"

namespace {

// Win32.
constexpr uint32_t kFileNotFound = 2, kPathNotFound = 3, kTooManyOpenFiles = 4, kAccessDenied = 5,
                   kInvalidHandle = 6, kNotEnoughMemory = 8, kInvalidData = 13, kOutOfMemory = 14,
                   kNoMoreFiles = 18, kCrcError = 23, kGenFailure = 31, kSharingViolation = 32,
                   kHandleEof = 38, kNotSupported = 50, kNetnameDeleted = 64, kInvalidParameter = 87,
                   kBrokenPipe = 109, kDiskFull = 112, kInsufficientBuffer = 122, kModuleNotFound = 126,
                   kProcedureNotFound = 127, kAlreadyExists = 183, kBadExecutable = 193, kPipeBusy = 231,
                   kNoData = 232, kPipeNotConnected = 233, kMoreData = 234, kAbandonedWait = 735,
                   kOperationAborted = 995, kNotReady = 21, kNotFound = 1168, kServiceNotActive = 1062,
                   kServiceNotInExe = 1083, kFailedControllerConnect = 1063, kShutdownInProgress = 1115,
                   kNoSystemResources = 1450, kNotEnoughQuota = 1816, kPrivilegeNotHeld = 1314,
                   kNoSuchPrivilege = 1313, kRpcServerUnavailable = 1722, kNoMoreItems = 259,
                   kNonePending = 1168, kBadConfiguration = 1610, kNoTokenInformation = 1008,
                   kRegistryCorrupt = 1015, kKeyDeleted = 1018, kInvalidComputerName = 1210,
                   kEventlogFileCorrupt = 1500, kInternalError = 1359, kNoSuchLogonSession = 1312,
                   kFileExists = 80, kWaitTimeout = 258, kInvalidSecurityDescriptor = 1338,
                   kEventlogFull = 1502, kInvalidState = 5023, kNoSuchCertificate = 0x80092004,
                   kPackageCorrupt = 15702;
// Winsock.
constexpr uint32_t kWsaIntr = 10004, kWsaFault = 10014, kWsaTooManyFiles = 10024, kWsaWouldBlock = 10035,
                   kWsaInProgress = 10036, kWsaNotSocket = 10038, kWsaAddressInUse = 10048,
                   kWsaAddressNotAvailable = 10049, kWsaNetDown = 10050, kWsaNetUnreachable = 10051,
                   kWsaNetReset = 10052, kWsaConnectionAborted = 10053, kWsaConnectionReset = 10054,
                   kWsaNoBuffers = 10055, kWsaNotConnected = 10057, kWsaTimedOut = 10060,
                   kWsaHostUnreachable = 10065, kWsaSystemNotReady = 10091;
// COM and WMI.
constexpr uint32_t kComOutOfMemory = 0x8007000E, kComUnexpected = 0x8000FFFF, kComChangedMode = 0x80010106,
                   kComTooLate = 0x80010119, kComClassNotRegistered = 0x80040154, kWbemFailed = 0x80041001,
                   kWbemNotFound = 0x80041002, kWbemAccessDenied = 0x80041003, kWbemTransport = 0x80041015,
                   kWbemShuttingDown = 0x80041033;
// Of graphics adapters.
constexpr uint32_t kDxgiNotFound = 0x887A0002, kDxgiUnsupported = 0x887A0004, kDxgiNotAvailable = 0x887A0022,
                   kComNoInterface = 0x80004002, kStatusNoMemory = 0xC0000017, kTimerCannotDo = 97;
// Of the C runtime, and NTSTATUS.
constexpr uint32_t kErrnoIo = 5, kErrnoAccess = 13, kErrnoInvalid = 22, kErrnoFiles = 24,
                   kStatusUnsuccessful = 0xC0000001;

using enum FailureEntry::Effect;

constexpr const char* kFirstAdapter =
    "an adapter of which less is known is passed over or used as it is; without any other it is the first";

constexpr const char* kOwned = "cannot fail on what its caller owns";

std::vector<FailureEntry> MakeTable() {
    return {
        // ---- what is the caller's own ----
        {"CloseHandle", {}, kOwned},
        {"closesocket", {}, kOwned},
        {"ReleaseMutex", {}, kOwned},
        {"ResetEvent", {}, kOwned},
        {"SetEvent", {}, kOwned},
        {"SetHandleInformation", {}, kOwned},
        {"VariantClear", {}, kOwned},
        {"WaitForSingleObject", {}, kOwned},
        {"QueryPerformanceCounter", {}, "never fails since Windows XP"},
        {"QueryPerformanceFrequency", {}, "never fails since Windows XP"},

        // ---- the process and its threads ----
        {"std::thread", {kNotEnoughMemory}},
        {"CreateThread", {kNotEnoughMemory, kAccessDenied}},
        {"TerminateThread", {kInvalidHandle, kAccessDenied}},
        {"OpenThread", {kInvalidParameter, kAccessDenied}},
        {"CreateEventA", {kNotEnoughMemory, kNoSystemResources}},
        {"CreateMutexA",
         {kNotEnoughMemory, kAccessDenied},
         "the logger's: without it the process ends",
         EndsProcess},
        {"GetUserNameA",
         {kNotEnoughMemory, kInsufficientBuffer},
         "the line with the name of the user shows none"},
        {"GetModuleFileNameA", {kInsufficientBuffer, kNotEnoughMemory}},
        {"GetModuleHandleA", {kModuleNotFound}},
        {"GetProcAddress", {kProcedureNotFound}},
        {"LoadLibraryW", {kModuleNotFound, kBadExecutable}},
        {"FreeLibrary", {kInvalidHandle}, "not examined: the work is done"},
        {"GetVersionExW", {kInsufficientBuffer}},
        {"K32GetProcessMemoryInfo",
         {kAccessDenied, kNotEnoughMemory},
         "every line shows it: no memory, or no time zone",
         None,
         true},
        {"getenv_s", {kErrnoInvalid}},
        {"FormatMessageA", {kNotEnoughMemory}, "reported to the debug entry, which writes nothing"},
        {"_popen", {kErrnoFiles}},
        {"_pclose", {kErrnoInvalid}, "not examined: the work is done"},
        {"system", {kErrnoFiles, kNotEnoughMemory}},
        {"GetCurrentPackageFullName", {kPackageCorrupt, kNotEnoughMemory}},
        {"GetCurrentPackagePath", {kPackageCorrupt, kNotEnoughMemory}},
        {"GetCurrentPackageFamilyName", {kPackageCorrupt, kNotEnoughMemory}},

        // ---- time and place ----
        {"GetTimeZoneInformation",
         {kInvalidParameter},
         "every line shows it: no memory, or no time zone",
         None,
         true},
        {"localtime_s", {kErrnoInvalid}},
        {"gmtime_s", {kErrnoInvalid}},
        {"asctime_s", {kErrnoInvalid}},
        {"GetComputerNameExA",
         {kMoreData, kNotEnoughMemory},
         "the line with the domain shows that it is not known"},
        {"RtlGetVersion", {kStatusUnsuccessful}},
        {"WideCharToMultiByte",
         {kInsufficientBuffer, kInvalidParameter},
         "the text that it converts is missing from its line",
         None,
         true},

        // ---- files ----
        {"_fsopen", {kErrnoAccess, kErrnoFiles}},
        {"_fseeki64", {kErrnoIo}, "the log's own: it goes on without a rotation", None, true},
        {"_ftelli64", {kErrnoIo}, "the log's own: it goes on without a rotation", None, true},
        {"MoveFileA", {kAccessDenied, kSharingViolation}},
        {"MoveFileExA", {kAccessDenied, kSharingViolation}},
        {"CopyFileA", {kFileNotFound, kAccessDenied, kSharingViolation, kDiskFull}},
        {"DeleteFileA", {kAccessDenied, kSharingViolation}},
        {"SHCreateDirectoryExA", {kPathNotFound, kAccessDenied}},
        {"RemoveDirectoryA",
         {kAccessDenied, kSharingViolation},
         "tried in case the folder is empty; a link that stays keeps the folder from being used"},
        {"GetFileInformationByHandle", {kAccessDenied, kInvalidHandle}},
        {"GetKernelObjectSecurity", {kAccessDenied, kInvalidHandle}},
        {"SetKernelObjectSecurity", {kAccessDenied, kInvalidSecurityDescriptor}},
        {"CreateFileA", {kFileNotFound, kAccessDenied, kSharingViolation}},
        {"ReadFile", {kNotEnoughMemory, kOperationAborted, kBrokenPipe}},
        {"WriteFile", {kNoData, kBrokenPipe, kNotEnoughQuota}},
        {"DeviceIoControl", {kGenFailure, kInvalidParameter, kNoSystemResources}},
        {"GetOverlappedResult", {kOperationAborted, kGenFailure}},
        {"CancelIoEx", {kNotFound, kInvalidHandle}, "what it would cancel may be over", HoldsThreads},
        {"CreateIoCompletionPort", {kInvalidParameter, kNotEnoughMemory}},
        {"GetQueuedCompletionStatus", {kAbandonedWait, kInvalidHandle}},

        // ---- pipes and their security ----
        {"CreateNamedPipeA", {kAccessDenied, kPipeBusy}},
        {"ConnectNamedPipe", {kNoData, kNotEnoughMemory}, "tried again; the last of many failures is logged"},
        {"DisconnectNamedPipe", {kPipeNotConnected}, "not examined: the work is done"},
        {"SetNamedPipeHandleState", {kInvalidParameter}},
        {"FlushFileBuffers", {kAccessDenied}, "not examined: the work is done"},
        {"InitializeSecurityDescriptor", {kInvalidParameter}},
        {"SetSecurityDescriptorDacl", {kInvalidParameter}},

        // ---- devices ----
        {"SetupDiGetClassDevsA", {kInvalidParameter, kNotEnoughMemory}},
        {"SetupDiEnumDeviceInterfaces", {kInvalidParameter, kNotEnoughMemory}, "asked again at once"},
        {"SetupDiGetDeviceInterfaceDetailA", {kInvalidData, kNotEnoughMemory}},
        {"SetupDiDestroyDeviceInfoList", {kInvalidHandle}, "not examined: the work is done", StaysOpen},

        // ---- the service manager and the event log ----
        {"StartServiceCtrlDispatcherA",
         {kFailedControllerConnect},
         "not examined: the process ends",
         Unstoppable},
        {"RegisterServiceCtrlHandlerExA", {kServiceNotInExe, kNotEnoughMemory}, nullptr, Unstoppable},
        {"SetServiceStatus", {kInvalidHandle}, "not examined: the next report may arrive", Unstoppable},
        {"OpenSCManagerA", {kAccessDenied, kRpcServerUnavailable}},
        {"OpenServiceA", {kAccessDenied}},
        {"QueryServiceConfigA", {kInsufficientBuffer}, "the start type of the driver stays as it is"},
        {"ChangeServiceConfigA", {kAccessDenied}},
        {"StartServiceA", {kAccessDenied, kPathNotFound}},
        {"QueryServiceStatus", {kInvalidHandle}, "the state that the stop has returned counts"},
        {"ControlService", {kAccessDenied}},
        {"CloseServiceHandle", {kInvalidHandle}, "not examined: the work is done", StaysOpen},
        {"RegisterEventSourceA", {kRpcServerUnavailable, kAccessDenied}},
        {"ReportEventA", {kEventlogFull, kRpcServerUnavailable}},
        {"DeregisterEventSource", {kInvalidHandle}, "not examined: the work is done", StaysOpen},

        // ---- the registry ----
        {"RegOpenKeyExA", {kFileNotFound, kAccessDenied}},
        {"RegQueryValueExA", {kFileNotFound, kMoreData, kKeyDeleted}},
        {"RegCloseKey", {kInvalidHandle}, "not examined: the work is done", StaysOpen},

        // ---- COM and WMI ----
        {"CreateDXGIFactory", {kDxgiUnsupported, kComOutOfMemory}, kFirstAdapter},
        {"CreateDXGIFactory1", {kDxgiUnsupported, kComOutOfMemory}},
        {"CreateDXGIFactory2", {kDxgiUnsupported, kComOutOfMemory}, "CreateDXGIFactory1 is called instead"},
        {"IDXGIFactory::EnumAdapters", {kDxgiNotFound, kComOutOfMemory}},
        {"IDXGIAdapter::EnumOutputs", {kDxgiNotFound, kDxgiNotAvailable}, kFirstAdapter},
        {"IDXGIAdapter::GetDesc", {kComOutOfMemory}, kFirstAdapter},
        {"IDXGIOutput::GetDesc", {kComOutOfMemory}, "only the name of the display is not known"},
        {"D3D11CreateDevice", {kDxgiUnsupported, kComOutOfMemory}},
        {"ID3D11Device::QueryInterface", {kComNoInterface}, "the device is used without the protection"},
        {"D3DKMTOpenAdapterFromLuid", {kStatusUnsuccessful, kStatusNoMemory}, kFirstAdapter},
        {"D3DKMTCloseAdapter", {kStatusUnsuccessful}, kFirstAdapter, StaysOpen},
        {"D3DKMTCreateDevice", {kStatusUnsuccessful, kStatusNoMemory}, kFirstAdapter},
        {"D3DKMTDestroyDevice", {kStatusUnsuccessful}, kFirstAdapter, StaysOpen},
        {"D3DKMTCreateContext", {kStatusUnsuccessful, kStatusNoMemory}, kFirstAdapter},
        {"D3DKMTDestroyContext", {kStatusUnsuccessful}, kFirstAdapter, StaysOpen},
        {"D3DKMTQueryAdapterInfo", {kStatusUnsuccessful, kStatusNoMemory}, kFirstAdapter},
        {"D3DKMTEscape", {kStatusUnsuccessful, kStatusNoMemory}, kFirstAdapter},
        {"timeBeginPeriod", {kTimerCannotDo}, "tried again with a longer period"},
        {"CoInitializeEx", {kComOutOfMemory, kComChangedMode}},
        {"CoInitializeSecurity", {kComOutOfMemory, kComTooLate}},
        {"CoCreateInstance",
         {kComClassNotRegistered, kComOutOfMemory},
         "the connection is made without asking for English"},
        {"CoSetProxyBlanket", {kComOutOfMemory}},
        {"IWbemContext::SetValue", {kComOutOfMemory}, "the connection is made without asking for English"},
        {"IWbemLocator::ConnectServer", {kWbemAccessDenied, kWbemTransport, kComOutOfMemory}},
        {"IWbemServices::ExecQuery", {kWbemFailed, kWbemAccessDenied, kWbemShuttingDown}},
        {"IEnumWbemClassObject::Next",
         {kWbemFailed, kWbemTransport},
         "the lines that show the system are missing"},
        {"IWbemClassObject::Get",
         {kWbemNotFound, kComOutOfMemory},
         "the line that shows the property is missing"},
        {"SysAllocString",
         {kOutOfMemory},
         "without the locale WMI answers in the host's language; a call that gets no text fails itself"},

        // ---- Winsock ----
        {"WSAStartup", {kWsaSystemNotReady}, "made before the log is open; later calls report it"},
        {"WSACleanup", {kWsaNetDown}, "not examined: the work is done", StaysOpen},
        {"socket", {kWsaTooManyFiles, kWsaNoBuffers, kWsaNetDown}},
        {"bind", {kWsaAddressInUse, kWsaAddressNotAvailable, kWsaNoBuffers}},
        {"listen", {kWsaAddressInUse, kWsaNetDown, kWsaTooManyFiles}},
        {"accept", {kWsaConnectionReset, kWsaTooManyFiles, kWsaNoBuffers}},
        {"connect", {kWsaTimedOut, kWsaNetUnreachable}},
        {"ioctlsocket", {kWsaNetDown, kWsaFault}},
        {"recv", {kWsaConnectionReset, kWsaConnectionAborted, kWsaIntr, kWsaWouldBlock}},
        {"select",
         {kWsaNetDown, kWsaNoBuffers},
         "recv is called without the wait, and reports an error itself"},
        {"send", {kWsaConnectionReset, kWsaNoBuffers, kWsaWouldBlock}},
        {"shutdown", {kWsaConnectionReset, kWsaNotConnected}, "the connection is closed right after"},
        {"getsockname", {kWsaNetDown}},
        {"gethostname", {kWsaNetDown}, "the line with the host name shows none"},

        // ---- the network ----
        {"GetAdaptersInfo",
         {kInvalidData, kNotSupported, 232 /* ERROR_NO_DATA */},
         "reported to the debug entry, which writes nothing"},
        {"GetAdaptersAddresses", {kNotEnoughMemory, 111 /* ERROR_BUFFER_OVERFLOW */}},
        {"GetIpAddrTable", {kNotSupported, kInvalidParameter}},
        {"GetIfTable", {kNotSupported, kNotEnoughMemory}},
        {"GetIfEntry", {kNotFound, kNotSupported}},
        {"GetNetworkParams", {kNotSupported, 232 /* ERROR_NO_DATA */}},
        {"InternetGetConnectedState",
         {0xFFFFFFFF},
         "a failure is its answer for a host without a connection"},
        {"WinHttpOpen", {kNotEnoughMemory}},
        {"WinHttpSetTimeouts", {kNotEnoughMemory}, "the limits of the platform hold"},
        {"WinHttpConnect", {12005 /* no host */, kNotEnoughMemory}},
        {"WinHttpOpenRequest", {kNotEnoughMemory}},
        {"WinHttpAddRequestHeaders", {kInvalidParameter}, "the same block goes with the request"},
        {"WinHttpSetOption", {12009 /* no such option */}},
        {"WinHttpSendRequest",
         {12002 /* too slow */, 12007 /* no address */, 12029 /* down */, 12175 /* no TLS */}},
        {"WinHttpCloseHandle", {kInvalidHandle}, "not examined: the work is done", StaysOpen},
        {"WlanOpenHandle", {kServiceNotActive, kNotEnoughMemory}},
        {"WlanCloseHandle", {kInvalidHandle}, "not examined: the work is done", StaysOpen},
        {"WlanEnumInterfaces", {kInvalidHandle, kNotEnoughMemory, kServiceNotActive}},
        {"WlanRegisterNotification", {kInvalidHandle, kNotEnoughMemory}, nullptr, StaysOpen},
        {"WlanQueryInterface", {kInvalidHandle, kInvalidState, kNotEnoughMemory}},
        {"WlanGetProfile", {kInvalidHandle, kNotFound, kAccessDenied}},
        {"WlanGetNetworkBssList", {kInvalidHandle, kNotSupported}},

        // ---- certificates ----
        {"CertOpenSystemStoreA", {kFileNotFound, kAccessDenied}},
        {"CertOpenStore", {kFileNotFound, kAccessDenied}},
        {"CertCloseStore", {kInvalidHandle}, "not examined: the work is done", StaysOpen},
        {"CertFindCertificateInStore", {kNoSuchCertificate}},
        {"CertGetCertificateChain", {kNotEnoughMemory}},
        {"CertGetNameStringA", {kNotEnoughMemory}},
        {"CryptStringToBinaryA", {kInvalidData}},
        {"CryptBinaryToStringA", {kNotEnoughMemory}},

        // ---- processes, sessions and tokens ----
        {"CreateToolhelp32Snapshot", {kNotEnoughMemory, kAccessDenied}, "as if no such process ran"},
        {"Process32First", {kNoMoreFiles}, "as if no such process ran"},
        {"Process32Next", {kNoMoreFiles}, "as if no such process ran"},
        {"OpenProcess", {kAccessDenied, kInvalidParameter}},
        {"TerminateProcess", {kAccessDenied}, "not examined: the agent stays"},
        {"GetProcessId", {kInvalidHandle}, "the line with the id of the process shows 0"},
        {"ProcessIdToSessionId", {kAccessDenied, kInvalidParameter}},
        {"WTSGetActiveConsoleSessionId", {kNoSuchLogonSession}, "as if no session were at the console"},
        {"WTSQuerySessionInformationA",
         {kAccessDenied, kRpcServerUnavailable},
         "a desktop of which nothing is known counts as unlocked"},
        {"OpenProcessToken", {kAccessDenied}},
        {"GetTokenInformation",
         {kAccessDenied, kInvalidHandle},
         "an owner that is not the system counts as a user; a repair is logged"},
        {"DuplicateTokenEx", {kAccessDenied, kNotEnoughMemory}},
        {"SetTokenInformation", {kPrivilegeNotHeld}, "shows when the process is started"},
        {"LookupPrivilegeValueA", {kNoSuchPrivilege}},
        {"AdjustTokenPrivileges", {kAccessDenied}},
        {"CreateEnvironmentBlock", {kNoTokenInformation, kAccessDenied}},
        {"DestroyEnvironmentBlock", {kInvalidHandle}, "not examined: the work is done", StaysOpen},
        {"CreateProcessA", {kFileNotFound, kAccessDenied, kNotEnoughMemory}},
        {"CreateProcessAsUserA", {kFileNotFound, kPipeNotConnected, kPrivilegeNotHeld}},

        {"NetUserChangePassword",
         {kAccessDenied, 2245 /* NERR_PasswordTooShort */, 1351 /* no controller */}},

        // ---- power ----
        {"GetPwrCapabilities", {kAccessDenied}},
        {"InitiateSystemShutdownExA", {kShutdownInProgress, kAccessDenied}},
        {"ExitWindowsEx", {kPrivilegeNotHeld}},
        {"SetSuspendState", {kPrivilegeNotHeld, kNotSupported}},
    };
}

// Functions and files where a call fails in silence that has to be logged elsewhere.
struct SilentPlace {
    const char* call;
    const char* place;
    const char* reason;
    uint32_t error = 0;              // 0: any
    const char* scenario = nullptr;  // null: any
};
constexpr const char* kNoRequest = "a file without which certreq.exe fails, or that nothing reads";

constexpr SilentPlace kSilentPlaces[] = {
    {"CreateEventA", "ZELService::ZELService", "before the log is open"},
    {"CreateEventA", "ServiceState::ServiceState", "before the log is open"},
    {"CreateEventA", "DetachedThreads::", "before the log is open"},
    {"CreateEventA", "NetworkMonitor::NetworkMonitor", "before the log is open"},
    {"CreateEventA", "DisplayCaptureThread::DisplayCaptureThread", "before the log is open"},
    {"CreateEventA", "NubaClient::NubaClient", "before the log is open"},
    {"GetAdaptersAddresses", "NetworkDomains.cpp", "asked again", 111},
    {"CreateEventA", "ReaderWatch::ReaderWatch", "the line of the failed connection comes either way"},
    {"LoadLibraryW", "LUXFactoryHelper::Load",
     "a PC without the media runtime; the line of the capability shows it"},
    {"RegOpenKeyExA", "OsName", "the line with the name of the system shows an unknown edition"},
    {"RegQueryValueExA", "QueryValue", "asked again with more room", kMoreData},
    {"RegQueryValueExA", "OsName", "the line with the name of the system shows an unknown edition"},
    {"GetQueuedCompletionStatus", "MailboxReadLoop::DrainReads", "reads that are left keep their buffers"},
    {"OpenProcessToken", "IsOwnUser", "an owner that is not the system counts as a user"},
    {"OpenProcess", "KVMAgent.cpp", "not examined: the agent stays"},
    {"IDXGIFactory::EnumAdapters", "DeviceDX11::EnumerateAdapters", kFirstAdapter},
    {"D3D11CreateDevice", "DeviceDX11.cpp", "tried again with another driver"},
    {"LoadLibraryW", "CreateFactory", "CreateDXGIFactory1 is called instead"},
    {"LoadLibraryW", "d3dkmt::Calls", kFirstAdapter},
    {"GetProcAddress", "_GUID const&", "CreateDXGIFactory1 is called instead"},
    {"GetProcAddress", "D3dkmt.cpp", kFirstAdapter},
    {"WriteFile", "MessagePipe::Write", "the line with the bytes that were written shows 0", 0, "display"},
    {"TerminateThread", "ZELService::StopDASHAndReadThread",
     "gets no handle; the read thread ends with the process"},
    {"DeleteFileA", "DeleteEndedProgram", "tried again, as while the program still runs"},
    {"system", "TaskExists", "a task that cannot be asked for is registered"},
    {"CreateFileA", "OpenInPlace", kNoRequest, 0, "enrolment"},
    {"GetFileInformationByHandle", "Examine", kNoRequest, 0, "enrolment"},
    {"GetKernelObjectSecurity", "Examine", kNoRequest, 0, "enrolment"},
    {"CreateProcessA", "CsrEnrolment.cpp", "the line of the missing certificate comes either way"},
    {"CryptBinaryToStringA", "CertificateChain.cpp",
     "the line with the certificate's size shows an empty one"},
    {"recv", "DASHClientInterface::ReceiveOnce", "tried again, as when there is nothing", kWsaWouldBlock},
    {"recv", "DASHClientInterface::ReceiveOnce", "tried again at once", kWsaIntr},
};

}  // namespace

bool MayBeSilent(const FailureEntry& entry, uint32_t error, std::string_view place,
                 std::string_view scenario) {
    if (entry.reason) return true;
    for (const SilentPlace& silent : kSilentPlaces) {
        if (silent.call != std::string_view(entry.call) || (silent.error && silent.error != error)) continue;
        if (silent.scenario && silent.scenario != scenario) continue;
        if (place == kUnknownPlace || place.find(silent.place) != std::string_view::npos) return true;
    }
    return false;
}

const std::vector<FailureEntry>& FailureTable() {
    static const std::vector<FailureEntry> table = MakeTable();
    return table;
}

const FailureEntry* FindFailure(std::string_view call) {
    static const auto index = [] {
        std::unordered_map<std::string_view, const FailureEntry*> byName;
        for (const FailureEntry& entry : FailureTable())
            byName[entry.call] = &entry;
        return byName;
    }();
    const auto found = index.find(call);
    return found == index.end() ? nullptr : found->second;
}
