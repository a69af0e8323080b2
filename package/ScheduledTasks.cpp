#include "package/ScheduledTasks.h"

#include <winsock2.h>
#include <windows.h>

#include <cstdlib>
#include <string>

#include "base/Log.h"
#include "package/PackageIdentity.h"
#include "state/ServiceState.h"

namespace {

constexpr const char* kStartTask = "StartZEL_Service";
constexpr const char* kCleanUpTask = "CleanUpZEL_Service";
constexpr const char* kTrayTask = "Start_ZEL_Tray_UI";
constexpr const char* kPowerShell = "PowerShell -NoProfile -ExecutionPolicy Bypass ";

std::string Scripts() {
    return g_pServiceState->m_packageContext.m_packagePath + "\\scripts\\";
}

// Of a task that the script StartZEL.ps1 registers.
std::string RegistrationCommand(const char* trigger, const char* task) {
    return std::string(kPowerShell) + "-Command \"&'" + Scripts() + "StartZEL.ps1' '" + Scripts() + trigger +
           "' '" + task + "'\"";
}

}  // namespace

bool TaskExists(const char* name) {
    const std::string command = std::string("schtasks /query /tn \"") + name + "\" > nul 2>&1";
    return std::system(command.c_str()) == 0;
}

void RegisterStartZELServiceTask() {
    if (TaskExists(kStartTask)) {
        LogInfo("Task %s already exists in the task scheduler.", kStartTask);
        return;
    }
    const std::string command = RegistrationCommand("StartZEL_Service_Trigger_Wake.xml", kStartTask);
    const int result = std::system(command.c_str());
    LogInfo("commmand sent to powershell: %s", command);
    if (result != 0)
        LogError("Adding Start_ZEL task to Task Schedular failed with Error: %d", result);
    else
        LogInfo("Start_ZEL task is added to Task Schedular.");
}

void RegisterCleanUpTask() {
    int result = ERROR_ACCESS_DENIED;
    if (g_pServiceState->m_bWorkingFolderSecure) {
        const std::string command = RegistrationCommand("ZEL_CleanUp_Trigger.xml", kCleanUpTask);
        result = std::system(command.c_str());
        LogInfo("Command sent to PowerShell: %s", command);
    }
    if (result != 0)
        LogError("Adding CleanUpZEL_Service task to Task Scheduler failed with Error: %d", result);
    else
        LogInfo("CleanUpZEL_Service task is added to Task Scheduler.");
}

void RegisterTrayUITask() {
    if (TaskExists(kTrayTask)) {
        LogInfo("Tray UI task already exists: %s", kTrayTask);
        return;
    }
    const std::string familyName = PackageFamilyName();
    if (familyName.empty()) {
        LogWarn("PFN not available; skip Tray UI scheduling.");
        return;
    }
    const std::string command = std::string(kPowerShell) + "-File \"" + Scripts() +
                                "RegisterStartZELTrayUI.ps1\" -PackageFamilyName \"" + familyName +
                                "\" -AppId \"App\" -DelaySeconds 10 -TaskName \"" + kTrayTask + "\"";
    LogInfo("Register Tray UI task: %s", command);
    const int result = std::system(command.c_str());
    if (result != 0)
        LogError("RegisterStartZELTrayUI.ps1 failed: %d", result);
    else
        LogInfo("%s task is added to Task Schedular.", kTrayTask);
}

void ConfigureRecoveryEnvironment() {
    PackageContext& context = g_pServiceState->m_packageContext;
    context.m_bRecoveryConfigDone = 0;
    int result = ERROR_ACCESS_DENIED;
    if (g_pServiceState->m_bWorkingFolderSecure) {
        const std::string command = std::string(kPowerShell) + "-Command \"&'" +
                                    g_pServiceState->GetRecoveryScriptPath() + "' -Action Install\"";
        result = std::system(command.c_str());
        LogInfo("Command sent to PowerShell: %s", command);
    }
    if (result != 0)
        LogError("Recovery Environment script encountered the followng error: %d", result);
    else
        LogInfo("Recovery Environment script ran successfully.");
    context.m_bRecoveryConfigDone = 1;
}
