#include "wifi/DataReader.h"

#include <winsock2.h>
#include <windows.h>

#include <cstring>
#include <string>

#include "base/Handles.h"
#include "base/Log.h"
#include "state/ServiceState.h"
#include "wifi/ReaderPipes.h"
#include "wifi/ReaderWatch.h"

namespace {

constexpr const char* kReader = "\\WiFiSyncDataReader.exe";
constexpr DWORD kWaitAfterFailedConnect = 3000;  // milliseconds
constexpr DWORD kWaitForEnd = 5000;

// Stands before each line of the one read; the lines of the other have none.
constexpr const char* kWiFiPrefix = "GetValueFromWiFiDataReader: ";
constexpr const char* kBootModePrefix = "";

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
bool AwaitConnection(HANDLE pipe, ReaderWatch& watch, const char* prefix) {
    const bool connected = watch && ConnectNamedPipe(pipe, nullptr);
    const DWORD error = GetLastError();
    if (connected) {
        LogInfo("%sClient connection established", prefix);
    } else if (watch && error == ERROR_PIPE_CONNECTED) {
        LogInfo("%sClient connected immediately", prefix);
    } else {
        LogError("%sConnectNamedPipe failed, error %lu", prefix, error);
        return false;
    }
    watch.SetConnected();
    return true;
}

// Returns true when a whole record has been read.
bool ReceiveRecord(HANDLE pipe, void* record, DWORD size, const char* prefix) {
    DWORD bytes = 0;
    const bool read = ReadFile(pipe, record, size, &bytes, nullptr);
    if (read && bytes == size) return true;
    LogError("%sReadFile failed or incomplete (bytes=%lu, error=%lu)", prefix, bytes,
             read ? DWORD{ERROR_SUCCESS} : GetLastError());
    std::memset(record, 0, size);
    return false;
}

// A program that hangs is left running. The stop of the service does not wait for it.
void AwaitEnd(HANDLE program, DWORD milliseconds) {
    for (DWORD waited = 0; waited < milliseconds && !g_pServiceState->m_bServiceStopping;
         waited += ReaderWatch::kPoll)
        if (WaitForSingleObject(program, ReaderWatch::kPoll) != WAIT_TIMEOUT) return;
}

// Runs `received()` when the record has come. Leaves the record as it is when the program does not connect,
// and zero when it delivers less than a record.
template <class Received>
void ReadRecord(const char* pipeName, const ReaderProgram& program, void* record, DWORD size,
                const char* prefix, Received received) {
    UniqueFileHandle pipe(CreateNamedPipeA(pipeName, PIPE_ACCESS_INBOUND,
                                           PIPE_TYPE_BYTE | PIPE_READMODE_BYTE | PIPE_WAIT, 1, 0, size, 0,
                                           nullptr));
    if (!pipe) return LogError("%sCreateNamedPipe failed, error %lu", prefix, GetLastError());
    LogInfo("%sNamed pipe created: %s", prefix, pipeName);
    UniqueHandle process;
    DWORD pid = 0;
    if (!StartReader(program, process, pid))
        return LogError("%sFailed to launch %s, error %lu", prefix, program.path, GetLastError());
    LogInfo("%sLaunched WiFiSyncDataReader.exe (PID=%lu)", prefix, pid);
    bool connected = false;
    {
        ReaderWatch watch(pipe.Get(), process.Get());
        connected = AwaitConnection(pipe.Get(), watch, prefix);
        if (connected && ReceiveRecord(pipe.Get(), record, size, prefix)) received();
    }
    if (connected) {
        FlushFileBuffers(pipe.Get());
        DisconnectNamedPipe(pipe.Get());
    }
    pipe.Reset();
    AwaitEnd(process.Get(), connected ? kWaitForEnd : kWaitAfterFailedConnect);
}

}  // namespace

void GetValueFromWiFiDataReader(WiFiSyncInfo* record) {
    if (!record) {
        LogError("GetValueFromWiFiDataReader: Null output structure pointer");
        return;
    }
    *record = {};
    record->size_of_this_structure = sizeof *record;
    ReadRecord(kWiFiPipeName, {ReaderPath(), {}}, record, sizeof *record, kWiFiPrefix, [&] {
        LogInfo("GetValueFromWiFiDataReader: Received Wi-Fi sync data (size=%lu, is_valid=%u)",
                uint32_t{sizeof *record}, record->is_valid);
    });
}

uint32_t GetBootMode() {
    uint32_t bootMode = 0;
    const std::string path = ReaderPath();
    // The path has no quotes around it.
    ReadRecord(kBootModePipeName, {path, path + " " + kBootModeArgument}, &bootMode, sizeof bootMode,
               kBootModePrefix, [&] {
                   LogInfo("Received Boot Mode data (size=%lu, boot mode=%u)", uint32_t{sizeof bootMode},
                           bootMode);
               });
    return bootMode;
}
