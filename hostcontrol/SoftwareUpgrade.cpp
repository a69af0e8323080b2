#include "hostcontrol/SoftwareUpgrade.h"

#include <winsock2.h>
#include <windows.h>

#include <string>
#include <string_view>

#include "base/ExecutableFolder.h"
#include "base/Handles.h"
#include "base/Log.h"
#include "state/ServiceState.h"

namespace {

constexpr const char* kProgram = "ZELSWUpgrade.exe";
constexpr size_t kTextSize = 1023;  // with the NUL

// A text that does not fit becomes an empty one, because a part of it may have another meaning.
std::string CopyText(const void* text, size_t length) {
    std::string_view copy(static_cast<const char*>(text), length);
    copy = copy.substr(0, copy.find('\0'));
    return copy.size() < kTextSize ? std::string(copy) : std::string();
}

std::string UpgradeProgram() {
    const PackageContext& package = g_pServiceState->m_packageContext;
    if (package.GetIsPackage()) return package.m_packagePath + "\\ZELSWUpgrade\\" + kProgram;
    const std::string folder = ExecutableFolder();
    return folder.empty() ? folder : folder + "\\" + kProgram;
}

}  // namespace

void StartSoftwareUpgrade(const void* text, size_t length) {
    LogInfo("Attempting Software Upgrade. Send size: %zu", length);
    const std::string argument = CopyText(text, length);
    const std::string program = UpgradeProgram();
    if (program.empty()) {
        LogError("Error fetching API path");
        return;
    }
    // The path has no quotes on purpose: the program takes the command line as it stands.
    std::string command = program + " \"" + argument + "\"";
    char desktop[] = "Winsta0\\Default";
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    startup.lpDesktop = desktop;
    startup.wShowWindow = SW_SHOW;
    PROCESS_INFORMATION information{};
    LogInfo("Command line Parameters passed to CreateProcess() API %s", command);
    if (!CreateProcessA(nullptr, command.data(), nullptr, nullptr, TRUE, DETACHED_PROCESS, nullptr, nullptr,
                        &startup, &information)) {
        LogError("CreateProcess() API failed with error : %d", GetLastError());
        return;
    }
    const UniqueHandle process(information.hProcess), thread(information.hThread);
    LogInfo("ZELSWUpgrade executable launched successfully");
}
