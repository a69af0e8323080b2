// The command line, the two modes of the program, and the start that both share.
#include <exception>
#include <string_view>
#include <vector>

#include "base/Log.h"
#include "base/ZELLogger.h"
#include "service/ZELService.h"

namespace {

constexpr DWORD kStartWaitHint = 20000;
constexpr DWORD kConsoleWait = 60000;

void WINAPI ServiceMain(DWORD, LPSTR*) {
    g_pZELService->Register();
}

DWORD WINAPI ControlHandler(DWORD control, DWORD eventType, LPVOID, LPVOID) {
    return g_pZELService->ServiceCtrlHandler(control, eventType);
}

// The text of the exception goes to the trace entry, which writes nothing.
void TraceException(const std::exception& exception) {
    const char* const what = exception.what();
    LogTrace("%s", what ? what : "Unknown exception");
}

void LogArguments(const std::vector<std::string_view>& arguments) {
    for (const std::string_view argument : arguments)
        LogError("arg = %s", argument.data());
}

}  // namespace

int ZELService::Main(int argc, char** argv) {
    try {
        RunWithArguments(argc, argv);
    } catch (const std::exception& exception) {
        LogError("Exception: In main");
        TraceException(exception);
    } catch (...) {
        LogError("Unknown Exception: In main");
    }
    return 0;
}

void ZELService::RunWithArguments(int argc, char** argv) {
    const std::vector<std::string_view> arguments(argv, argv + argc);
    InitializeLogging();
    char user[257] = "";
    DWORD size = sizeof user;
    GetUserNameA(user, &size);
    LogInfo("Started by %s user", user);
    if (arguments.size() != 2) {
        LogError("Argument incorrect. count = %d, %d", arguments.size(), argc);
        LogArguments(arguments);
    } else if (arguments[1] == "-service") {
        LogInfo("Starting as a Win32 Service");
        RunAsService();
    } else if (arguments[1] == "-console") {
        LogInfo("Starting as a console");
        RunAsConsole();
    } else {
        LogError("Invalid argument");
        LogArguments(arguments);
    }
}

void ZELService::RunAsService() {
    m_bRunAsConsole = 0;
    const SERVICE_TABLE_ENTRYA table[] = {{m_ServiceName.data(), &ServiceMain}, {nullptr, nullptr}};
    StartServiceCtrlDispatcherA(table);
}

// Nothing signals the event in this mode. A console run ends when the process is killed.
void ZELService::RunAsConsole() {
    m_bRunAsConsole = 1;
    LogDebug("Enter ZELService::%s", "RunAsConsole");
    if (!ServiceSetup()) return;
    LogInfo("Launch as console is successful");
    while (WaitForSingleObject(m_ConsoleStopEvent.Get(), kConsoleWait) == WAIT_TIMEOUT) {
    }
    LogDebug("Exit %s", "RunAsConsole");
}

// main's exception handler does not cover the dispatcher's thread, so this function has its own.
void ZELService::Register() {
    try {
        RunServiceMain();
        return;
    } catch (const std::exception& exception) {
        LogError("Exception: In Register");
        TraceException(exception);
    } catch (...) {
        LogError("Unknown Exception: In Register");
    }
    ReportServiceStatus(SERVICE_STOPPED, ERROR_EXCEPTION_IN_SERVICE, 0);
}

void ZELService::RunServiceMain() {
    m_ControlsAccepted = SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_POWEREVENT | SERVICE_ACCEPT_PRESHUTDOWN;
    m_ServiceStatusHandle = RegisterServiceCtrlHandlerExA(m_ServiceName.c_str(), &ControlHandler, this);
    if (!m_ServiceStatusHandle) {
        LogError("Register: RegisterServiceCtrlHandlerEx() API failed with error: %d", GetLastError());
        return;
    }
    {
        std::lock_guard lock(m_serviceStatusMutex);
        m_ServiceStatus = {};
        m_ServiceStatus.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
        m_ServiceStatus.dwControlsAccepted = m_ControlsAccepted;
    }
    ReportServiceStatus(SERVICE_START_PENDING, NO_ERROR, kStartWaitHint);
    if (!ServiceSetup()) return;
    ReportServiceStatus(SERVICE_RUNNING, NO_ERROR, 0);
    LogInfo("Register: ZEL Win32 Service started and initialized successfully");
}

bool ZELService::ServiceSetup() {
    if (const uint32_t error = DoInitialization()) {
        LogError("%s: DoInitialization failed with error: %d", "ServiceSetup", error);
        ReportServiceStatus(SERVICE_STOPPED, error, 0);
        return false;
    }
    m_detachedThreads.Start([this] {
        if (const uint32_t error = DoDriverInitialization()) {
            LogError("%s: DoDriverInitialization failed with error: %d", "operator ()", error);
            ReportServiceStatus(SERVICE_STOPPED, error, 0);
        }
    });
    // A previous run may have left an agent.
    KVMAgent::RemoveKVMAgent();
    return true;
}
