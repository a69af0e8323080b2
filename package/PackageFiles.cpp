// The copies in the working folder. They run as SYSTEM, so no user may be able to replace them or to put a
// library beside them.
#include <winsock2.h>
#include <windows.h>

#include <filesystem>
#include <string>
#include <system_error>

#include "base/FileGuard.h"
#include "base/FilesystemPath.h"
#include "base/Log.h"
#include "package/PackageDeployment.h"
#include "package/ScheduledTasks.h"
#include "state/LogFileName.h"
#include "state/ServiceState.h"

namespace {

constexpr const char* kAgent = "ZELKVMApp.exe";
constexpr const char* kReader = "WiFiSyncDataReader.exe";
constexpr const char* kCleanupScript = "ZELUninstallCleanup.ps1";
constexpr int kDeleteAttempts = 10;
constexpr DWORD kDeletePause = 100;  // milliseconds

using FunctionLine = logging::Format<const char*>;
using PathLine = logging::Format<const char*, std::string>;

struct CopyTexts {
    const char* function;
    PathLine source, target;
    FunctionLine success;
    const char* consequence;  // of a failure
};
constexpr CopyTexts kAgentTexts{
    "CopyKVMAgent", "%s: KVM Agent source path: %s", "%s: KVM Agent destination path: %s",
    "%s: KVM Agent copied successfully for MSIX package, KVM functionality should work.",
    "Start KVM functionality will not work"};
constexpr CopyTexts kReaderTexts{
    "CopyWiFiSyncDataReader", "%s: WiFiSyncDataReader source path: %s",
    "%s: WiFiSyncDataReader destination path: %s",
    "%s: WiFiSyncDataReader copied successfully for MSIX package, Wi-Fi Sync functionality should work.",
    "Wi-Fi Sync functionality will not work"};
constexpr CopyTexts kCleanupTexts{"CopyTaskCleanupScript", "%s: Clean up script source path: %s",
                                  "%s: Clean up script destination path: %s",
                                  "%s: Clean up script copied successfully for MSIX package, The cleanup "
                                  "process after uninstallation should "
                                  "work.",
                                  "The cleanup process after uninstallation will not work"};
constexpr CopyTexts kRecoveryTexts{
    "CopyTaskCleanupScript", "%s: Recovery Environment script source path: %s",
    "%s: Clean up script destination path: %s",
    "%s: Recovery Environment configuration script copied successfully for MSIX package, Recovery "
    "Environment "
    "should be restored after uninstallation.",
    "The Recovery Environment is not restored to original during uninstallation"};

std::string InWorkingFolder(const std::string& name) {
    return g_pServiceState->GetWorkingFolder() + "\\" + name;
}

bool Exists(const std::string& path) {
    std::error_code error;
    return std::filesystem::exists(FilesystemPath(path), error);
}

// False with the last error.
bool IsFolderSecure() {
    if (g_pServiceState->m_bWorkingFolderSecure) return true;
    SetLastError(ERROR_ACCESS_DENIED);
    return false;
}

bool DeleteFromWorkingFolder(const std::string& path) {
    return IsFolderSecure() && DeleteFileA(path.c_str());
}

// A secure folder may still hold a file from the time before, or one whose own rights are wider.
bool RemoveWhatUsersCanChange(const std::string& folder) {
    try {
        for (const auto& entry : std::filesystem::directory_iterator(FilesystemPath(folder))) {
            const std::string name = entry.path().filename().string();
            // The logger has checked its file and has it open.
            if (name == kLogFileName) continue;
            const std::string path = (folder + "\\").append(name);
            const Removal removal = RemoveUnlessTrusted(path);
            if (removal == Removal::Done)
                LogWarn("%s was a link or could be changed by users, and is removed", path);
            if (removal != Removal::Failed) continue;
            LogWarn("%s was a link or could be changed by users, and cannot be removed", path);
            return false;
        }
        return true;
    } catch (const std::filesystem::filesystem_error&) {
        LogWarn("%s cannot be searched for files that users could change", folder);
        return false;
    }
}

void SecureWorkingFolder() {
    if (g_pServiceState->m_bWorkingFolderSecure &&
        !RemoveWhatUsersCanChange(g_pServiceState->GetWorkingFolder()))
        g_pServiceState->m_bWorkingFolderSecure = false;
}

void CopyFromPackage(const CopyTexts& texts, const std::string& name, const std::string& target) {
    const std::string source = g_pServiceState->m_packageContext.m_packagePath + name;
    LogInfo(texts.source, texts.function, source);
    LogInfo(texts.target, texts.function, target);
    if (IsFolderSecure() && CopyFileA(source.c_str(), target.c_str(), FALSE)) {
        LogInfo(texts.success, texts.function);
        return;
    }
    LogError("%s: CopyFile() API failed with error: %d", texts.function, GetLastError());
    LogError("%s", texts.consequence);
}

// False, with the lines that say so, when there is no folder to copy to.
bool HasProgramData(const FunctionLine& complaint, const CopyTexts& texts) {
    if (!g_pServiceState->GetProgramDataFolder().empty()) return true;
    LogError(complaint, texts.function);
    LogError("%s", texts.consequence);
    return false;
}

// Tries for a second, because a program that has just been terminated keeps its file for a moment.
bool DeleteEndedProgram(const std::string& path) {
    for (int attempt = 1; IsFolderSecure(); ++attempt) {
        if (DeleteFileA(path.c_str())) return true;
        if (attempt == kDeleteAttempts || GetLastError() != ERROR_ACCESS_DENIED) break;
        Sleep(kDeletePause);
    }
    return false;
}

void DeleteProgram(const char* function, const char* program) {
    const std::string path = InWorkingFolder(program);
    if (DeleteEndedProgram(path))
        LogInfo("%s: %s deleted successfully for MSIX package.", program, path);
    else
        LogInfo("%s: DeleteFile() API failed with error: %d", function, GetLastError());
}

void StartRecoveryConfiguration() {
    try {
        g_pServiceState->m_detachedThreads.Start(&ConfigureRecoveryEnvironment);
    } catch (const std::system_error& error) {
        // The service starts without it.
        LogError("Recovery Environment script encountered the followng error: %d", error.code().value());
    }
}

}  // namespace

void PreparePackage() {
    SecureWorkingFolder();
    CopyKVMAgent();
    CopyWiFiSyncDataReader();
    CopyTaskCleanupScript();
    RegisterStartZELServiceTask();
    RegisterCleanUpTask();
    RegisterTrayUITask();
}

void CopyKVMAgent() {
    if (!HasProgramData("%s: ProgramData environment variable is empty, unable to copy KVM App", kAgentTexts))
        return;
    CopyFromPackage(kAgentTexts, std::string("\\KVM_Agent\\") + kAgent, InWorkingFolder(kAgent));
}

void CopyWiFiSyncDataReader() {
    if (!HasProgramData("%s: ProgramData environment variable is empty, unable to copy WiFiSyncDataReader",
                        kReaderTexts))
        return;
    CopyFromPackage(kReaderTexts, std::string("\\WiFiSyncDataReader\\") + kReader, InWorkingFolder(kReader));
}

void CopyTaskCleanupScript() {
    // The text is that of the agent.
    if (!HasProgramData("%s: ProgramData environment variable is empty, unable to copy KVM App",
                        kCleanupTexts))
        return;
    const std::string cleanup = InWorkingFolder(kCleanupScript);
    if (Exists(cleanup)) {
        LogInfo("File already exists: %s", cleanup);
        return;
    }
    CopyFromPackage(kCleanupTexts, std::string("\\scripts\\") + kCleanupScript, cleanup);
    const std::string recovery = g_pServiceState->GetRecoveryScriptPath();
    if (Exists(recovery)) {
        LogInfo("File already exists: %s. Attempting to remove file", recovery);
        // The texts are those of the agent's terminate file.
        if (DeleteFromWorkingFolder(recovery))
            LogInfo("Terminate file deleted successfully");
        else
            LogWarn("Terminate file deletion failed");
    }
    CopyFromPackage(kRecoveryTexts, "\\scripts\\ConfigureRecoveryEnvironmentSupport.ps1", recovery);
    StartRecoveryConfiguration();
}

void DeleteKVMAgent() {
    DeleteProgram("DeleteKVMAgent", kAgent);
}

void DeleteWiFiSyncDataReader() {
    DeleteProgram("DeleteWiFiSyncDataReader", kReader);
}
