#include "kvm/KVMAgent.h"

#include <winsock2.h>
#include <windows.h>
#include <tlhelp32.h>

#include <cstring>
#include <fstream>
#include <functional>
#include <system_error>

#include "base/FileGuard.h"
#include "base/FilesystemPath.h"
#include "base/Handles.h"
#include "base/Log.h"
#include "session/LaunchProcess.h"
#include "state/HelperFolder.h"
#include "state/ServiceState.h"

namespace {

constexpr const char* kProgram = "ZELKVMApp.exe";
constexpr UINT kKilled = 9;

std::string CommandLine(const std::string& program, uint32_t displayMode) {
    const auto item = [](const char* name, uint32_t value) {
        return std::string(" ") + name + " " + std::to_string(value);
    };
    // GetSystemMetrics reports the screen of the service's own session, which may differ from the console's
    // screen.
    return '"' + program + '"' + item("-X", GetSystemMetrics(SM_CXSCREEN)) +
           item("-Y", GetSystemMetrics(SM_CYSCREEN)) + item("-V", g_pServiceState->m_vorkVersion) +
           item("-E", displayMode);
}

// Calls `visit` with the id of each process with this name until `visit` returns false.
void ForEachProcess(const char* name, const std::function<bool(DWORD)>& visit) {
    const UniqueFileHandle snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPALL, 0));
    if (!snapshot) return;
    PROCESSENTRY32 entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = Process32First(snapshot.Get(), &entry); more;
         more = Process32Next(snapshot.Get(), &entry)) {
        if (std::strcmp(entry.szExeFile, name) == 0 && !visit(entry.th32ProcessID)) return;
    }
}

struct DeletionTexts {
    const char *deleted, *failed, *absent;
};
constexpr DeletionTexts kTerminateFileTexts{
    "Terminate file deleted successfully", "Terminate file deletion failed", "Terminate file does not exist"};
constexpr DeletionTexts kDisplayMgrLogTexts{"DisplayMgr file deleted successfully",
                                            "DisplayMgr file deletion failed",
                                            "DisplayMgr file does not exist"};

void DeleteIfThere(const std::string& path, const DeletionTexts& texts) {
    std::error_code error;
    const std::filesystem::path file = FilesystemPath(path);
    if (!g_pServiceState->m_bWorkingFolderSecure || !std::filesystem::exists(file, error)) {
        LogInfo("%s", texts.absent);
    } else if (std::filesystem::remove(file, error)) {
        LogInfo("%s", texts.deleted);
    } else {
        LogWarn("%s", texts.failed);
    }
}

}  // namespace

int KVMAgent::LaunchKVMAgent(uint8_t displayMode) {
    const std::string folder = GetKVMAgentFolder();
    if (folder.empty()) return 0;
    const std::string program = folder + "\\" + kProgram;
    LogDebug("KVM Agent = %s", program);
    const std::string command = CommandLine(program, displayMode);
    LogInfo("KVM APP Command:%s", command);
    uint32_t pid = m_agentPID;
    const bool launched = LaunchProcess(kProgram, command, pid);
    m_agentPID = pid;
    LogInfo("%s: KEYBOARD_MOUSE - KVM_Agent PID: %d", "LaunchKVMAgent", pid);
    return launched;
}

void KVMAgent::TerminateKVMAgent() {
    std::ofstream file =
        OpenForWriting(g_pServiceState->GetTerminateFilePath(), g_pServiceState->m_bWorkingFolderSecure);
    if (!file.is_open()) {
        LogInfo("Failed to create terminate.txt file.");
        return;
    }
    file << "terminate\n" << std::flush;
    LogInfo("Termiante 'is written to terminate file.");
    // Exceptions are enabled only here, so that only close() can throw.
    file.clear();
    file.exceptions(std::ios::failbit);
    file.close();
}

void KVMAgent::RemoveKVMAgent() {
    killProcessByName(kProgram);
    DeleteIfThere(g_pServiceState->GetTerminateFilePath(), kTerminateFileTexts);
    DeleteIfThere(g_pServiceState->GetDisplayMgrLogPath(), kDisplayMgrLogTexts);
}

bool KVMAgent::IsKVMAgentRunning() {
    bool running = false;
    ForEachProcess(kProgram, [&](DWORD) {
        running = true;
        return false;
    });
    return running;
}

bool KVMAgent::IsProcessRunning(uint32_t pid) {
    return ::IsProcessRunning(pid);
}

void killProcessByName(const char* name) {
    ForEachProcess(name, [&](DWORD pid) {
        const UniqueHandle process(OpenProcess(PROCESS_TERMINATE, FALSE, pid));
        if (process) {
            TerminateProcess(process.Get(), kKilled);
            LogInfo("Forcefully exited %s by kill by process", name);
        }
        return true;
    });
    LogInfo("Exited killProcessByName function");
}
