#include "wifi/DataReader.h"

#include <winsock2.h>
#include <windows.h>

#include <cstring>
#include <string>

#include "base/Handles.h"
#include "base/Log.h"
#include "state/ServiceState.h"
#include "wifi/ReaderWatch.h"

namespace {

constexpr const char* kWiFiPipe = "\\\\.\\pipe\\WifiPipe";
constexpr const char* kBootModePipe = "\\\\.\\pipe\\BootModePipe";
constexpr const char* kReader = "\\WiFiSyncDataReader.exe";
constexpr const char* kBootModeArgument = "GetBootMode";
constexpr DWORD kWaitAfterFailedConnect = 3000;  // milliseconds
constexpr DWORD kWaitForEnd = 5000;

// The lines of the two reads, which differ.
struct ReaderLog {
    void (*createFailed)(DWORD error);
    void (*created)(const char* pipe);
    void (*launchFailed)(const std::string& path, DWORD error);
    void (*launched)(DWORD pid);
    void (*connectedAtOnce)();
    void (*connected)();
    void (*connectFailed)(DWORD error);
    void (*readFailed)(DWORD bytes, DWORD error);
};

constexpr ReaderLog kWiFiLog = {
    [](DWORD error) { LogError("GetValueFromWiFiDataReader: CreateNamedPipe failed, error %lu", error); },
    [](const char* pipe) { LogInfo("GetValueFromWiFiDataReader: Named pipe created: %s", pipe); },
    [](const std::string& path, DWORD error) {
        LogError("GetValueFromWiFiDataReader: Failed to launch %s, error %lu", path, error);
    },
    [](DWORD pid) { LogInfo("GetValueFromWiFiDataReader: Launched WiFiSyncDataReader.exe (PID=%lu)", pid); },
    [] { LogInfo("GetValueFromWiFiDataReader: Client connected immediately"); },
    [] { LogInfo("GetValueFromWiFiDataReader: Client connection established"); },
    [](DWORD error) { LogError("GetValueFromWiFiDataReader: ConnectNamedPipe failed, error %lu", error); },
    [](DWORD bytes, DWORD error) {
        LogError("GetValueFromWiFiDataReader: ReadFile failed or incomplete (bytes=%lu, error=%lu)", bytes,
                 error);
    },
};

constexpr ReaderLog kBootModeLog = {
    [](DWORD error) { LogError("CreateNamedPipe failed, error %lu", error); },
    [](const char* pipe) { LogInfo("Named pipe created: %s", pipe); },
    [](const std::string& path, DWORD error) { LogError("Failed to launch %s, error %lu", path, error); },
    [](DWORD pid) { LogInfo("Launched WiFiSyncDataReader.exe (PID=%lu)", pid); },
    [] { LogInfo("Client connected immediately"); },
    [] { LogInfo("Client connection established"); },
    [](DWORD error) { LogError("ConnectNamedPipe failed, error %lu", error); },
    [](DWORD bytes, DWORD error) {
        LogError("ReadFile failed or incomplete (bytes=%lu, error=%lu)", bytes, error);
    },
};

struct ReaderProgram {
    std::string path;
    std::string commandLine;  // empty: the program is started by its path alone
};

std::string ReaderPath() {
    return g_pServiceState->GetWorkingFolder() + kReader;
}

// The program runs as SYSTEM, so that the folder must be one that no user can write to.
bool StartReader(ReaderProgram program, UniqueHandle& process, DWORD& pid) {
    if (!g_pServiceState->m_bWorkingFolderSecure) {
        SetLastError(ERROR_ACCESS_DENIED);
        return false;
    }
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION information{};
    const bool byPath = program.commandLine.empty();
    if (!CreateProcessA(byPath ? program.path.c_str() : nullptr,
                        byPath ? nullptr : program.commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr,
                        nullptr, &startup, &information))
        return false;
    const UniqueHandle thread(information.hThread);
    process.Reset(information.hProcess);
    pid = information.dwProcessId;
    return true;
}

// Returns true when the program is connected.
bool AwaitConnection(HANDLE pipe, ReaderWatch& watch, const ReaderLog& log) {
    const bool connected = watch && ConnectNamedPipe(pipe, nullptr);
    const DWORD error = GetLastError();
    if (connected) {
        log.connected();
    } else if (watch && error == ERROR_PIPE_CONNECTED) {
        log.connectedAtOnce();
    } else {
        log.connectFailed(error);
        return false;
    }
    watch.SetConnected();
    return true;
}

// Returns true when a whole record has been read.
bool ReceiveRecord(HANDLE pipe, void* record, DWORD size, const ReaderLog& log) {
    DWORD bytes = 0;
    const bool read = ReadFile(pipe, record, size, &bytes, nullptr);
    if (read && bytes == size) return true;
    log.readFailed(bytes, read ? ERROR_SUCCESS : GetLastError());
    std::memset(record, 0, size);
    return false;
}

// Runs `received()` when the record has come. Leaves the record as it is when the program does not connect,
// and zero when it delivers less than a record.
template <class Received>
void ReadRecord(const char* pipeName, const ReaderProgram& program, void* record, DWORD size,
                const ReaderLog& log, Received received) {
    UniqueFileHandle pipe(CreateNamedPipeA(pipeName, PIPE_ACCESS_INBOUND,
                                           PIPE_TYPE_BYTE | PIPE_READMODE_BYTE | PIPE_WAIT, 1, 0, size, 0,
                                           nullptr));
    if (!pipe) return log.createFailed(GetLastError());
    log.created(pipeName);
    UniqueHandle process;
    DWORD pid = 0;
    if (!StartReader(program, process, pid)) return log.launchFailed(program.path, GetLastError());
    log.launched(pid);
    bool connected = false;
    {
        ReaderWatch watch(pipe.Get(), process.Get());
        connected = AwaitConnection(pipe.Get(), watch, log);
        if (connected && ReceiveRecord(pipe.Get(), record, size, log)) received();
    }
    if (connected) {
        FlushFileBuffers(pipe.Get());
        DisconnectNamedPipe(pipe.Get());
    }
    pipe.Reset();
    // A program that hangs is left running.
    WaitForSingleObject(process.Get(), connected ? kWaitForEnd : kWaitAfterFailedConnect);
}

}  // namespace

void GetValueFromWiFiDataReader(WiFiSyncInfo* record) {
    if (!record) {
        LogError("GetValueFromWiFiDataReader: Null output structure pointer");
        return;
    }
    *record = {};
    record->size_of_this_structure = sizeof *record;
    ReadRecord(kWiFiPipe, {ReaderPath(), {}}, record, sizeof *record, kWiFiLog, [&] {
        LogInfo("GetValueFromWiFiDataReader: Received Wi-Fi sync data (size=%lu, is_valid=%u)",
                uint32_t{sizeof *record}, record->is_valid);
    });
}

uint32_t GetBootMode() {
    uint32_t bootMode = 0;
    const std::string path = ReaderPath();
    // The path has no quotes around it.
    ReadRecord(
        kBootModePipe, {path, path + " " + kBootModeArgument}, &bootMode, sizeof bootMode, kBootModeLog, [&] {
            LogInfo("Received Boot Mode data (size=%lu, boot mode=%u)", uint32_t{sizeof bootMode}, bootMode);
        });
    return bootMode;
}
