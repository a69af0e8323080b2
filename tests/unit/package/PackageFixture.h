// A service that runs from a package, on a PC with a task scheduler and a PowerShell of the test's own.
//
// Their state is in the folder C:\tasks: a file for each task, and NAME.result with the exit code of the
// script that registers NAME. "recovery" stands for the configuration of the recovery environment, which does
// not end while the file "recovery.hold" is there.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "package/PackageDeployment.h"
#include "package/ScheduledTasks.h"
#include "tests/support/ServiceFixture.h"

class PackageFixture : public ServiceFixture {
  protected:
    static constexpr char kFullName[] = "Tarvix.ZEL_5.1.0.1481_x64__8wekyb3d8bbwe";
    static constexpr char kPackage[] =
        R"(C:\Program Files\WindowsApps\Tarvix.ZEL_5.1.0.1481_x64__8wekyb3d8bbwe)";
    static constexpr char kFamilyName[] = "Tarvix.ZEL_8wekyb3d8bbwe";
    static constexpr char kWorkingFolder[] = R"(C:\ProgramData\Tarvix\Manageability)";
    static constexpr char kAgent[] = "ZELKVMApp.exe";
    static constexpr char kReader[] = "WiFiSyncDataReader.exe";
    static constexpr char kCleanup[] = "ZELUninstallCleanup.ps1";
    static constexpr char kRecovery[] = "ConfigureRecoveryEnvironmentSupport.ps1";
    static constexpr char kQueryStart[] = R"(schtasks /query /tn "StartZEL_Service" > nul 2>&1)";
    static constexpr char kQueryTray[] = R"(schtasks /query /tn "Start_ZEL_Tray_UI" > nul 2>&1)";

    static constexpr char kPowerShell[] = R"sh(
case "$*" in
*"'StartZEL_Service'") task=StartZEL_Service ;;
*"'CleanUpZEL_Service'") task=CleanUpZEL_Service ;;
*RegisterStartZELTrayUI*) task=Start_ZEL_Tray_UI ;;
*) task=recovery ;;
esac
while [ -e "C:/tasks/$task.hold" ]; do sleep 0.01; done
[ -e "C:/tasks/$task.result" ] && exit "$(cat "C:/tasks/$task.result")"
echo "$*" > "C:/tasks/$task")sh";

    void SetUp() override {
        ServiceFixture::SetUp();
        service->m_bRunAsConsole = 1;
        // The reader of the boot mode is a text here.
        AllowError("Failed to launch ");
        for (const auto& [place, name] : Files())
            Write(InPackage(place + name), name + " 1");
        WriteProgram(R"(C:\Windows\System32\schtasks.exe)", R"([ -e "C:/tasks/$3" ])");
        WriteProgram(R"(C:\Windows\System32\WindowsPowerShell\v1.0\powershell.exe)", kPowerShell);
        std::filesystem::create_directories(HostPath(R"(C:\tasks)"));
    }
    void TearDown() override {
        Release();
        ServiceFixture::TearDown();
    }
    void Describe(winhost::PcDescription& description) override {
        ServiceFixture::Describe(description);
        description.package = {kFullName, kPackage, kFamilyName};
        description.registry.clear();
    }

    // ---- the package and its copies ----

    static std::vector<std::pair<std::string, std::string>> Files() {
        return {{R"(\KVM_Agent\)", kAgent},
                {R"(\WiFiSyncDataReader\)", kReader},
                {R"(\scripts\)", kCleanup},
                {R"(\scripts\)", kRecovery}};
    }
    static std::string InPackage(const std::string& name) { return kPackage + name; }
    static std::string InWorking(const std::string& name) {
        return std::string(kWorkingFolder) + "\\" + name;
    }
    static void Write(const std::string& windowsPath, const std::string& text) {
        std::filesystem::create_directories(HostPath(windowsPath).parent_path());
        std::ofstream(HostPath(windowsPath)) << text;
    }
    static void WriteProgram(const std::string& windowsPath, const std::string& lines) {
        Write(windowsPath, "#!/bin/sh\n" + lines + "\n");
        std::filesystem::permissions(HostPath(windowsPath), std::filesystem::perms::owner_all);
    }
    static void MakeReadOnly(const std::string& windowsPath) {
        std::filesystem::permissions(HostPath(windowsPath), std::filesystem::perms::owner_read);
    }
    static std::string Read(const std::string& windowsPath) {
        std::ifstream file(HostPath(windowsPath));
        return {std::istreambuf_iterator<char>(file), {}};
    }
    static bool Exists(const std::string& windowsPath) {
        return std::filesystem::exists(std::filesystem::symlink_status(HostPath(windowsPath)));
    }
    // Both scripts are there, as after a first start.
    static void WriteScripts() {
        Write(InWorking(kCleanup), "cleanup 0");
        Write(InWorking(kRecovery), "recovery 0");
    }

    // ---- the tasks ----

    static void AddTask(const std::string& name) { Write("C:\\tasks\\" + name, ""); }
    static bool HasTask(const std::string& name) { return Exists("C:\\tasks\\" + name); }
    static void Fail(const std::string& task, int result) {
        Write("C:\\tasks\\" + task + ".result", std::to_string(result));
    }
    static void Hold() { Write(R"(C:\tasks\recovery.hold)", ""); }
    static void Release() { std::filesystem::remove(HostPath(R"(C:\tasks\recovery.hold)")); }

    // What was given to the command processor; the recovery script runs beside the other commands.
    static std::vector<std::string> Commands() {
        std::vector<std::string> commands;
        for (const auto& record : Pc().Records<winhost::SystemCommand>())
            if (record.command.find(kRecovery) == std::string::npos) commands.push_back(record.command);
        return commands;
    }
    static size_t RecoveryCommands() {
        return Pc().Records<winhost::SystemCommand>().size() - Commands().size();
    }
    static std::string RegistrationOf(const std::string& trigger, const std::string& task) {
        const std::string scripts = InPackage("\\scripts\\");
        return "PowerShell -NoProfile -ExecutionPolicy Bypass -Command \"&'" + scripts + "StartZEL.ps1' '" +
               scripts + trigger + "' '" + task + "'\"";
    }
    static std::string StartRegistration() {
        return RegistrationOf("StartZEL_Service_Trigger_Wake.xml", "StartZEL_Service");
    }
    static std::string CleanUpRegistration() {
        return RegistrationOf("ZEL_CleanUp_Trigger.xml", "CleanUpZEL_Service");
    }
    static std::string TrayRegistration() {
        return "PowerShell -NoProfile -ExecutionPolicy Bypass -File \"" +
               InPackage("\\scripts\\RegisterStartZELTrayUI.ps1") + "\" -PackageFamilyName \"" + kFamilyName +
               "\" -AppId \"App\" -DelaySeconds 10 -TaskName \"Start_ZEL_Tray_UI\"";
    }
    static std::string RecoveryCommand() {
        return "PowerShell -NoProfile -ExecutionPolicy Bypass -Command \"&'" + InWorking(kRecovery) +
               "' -Action Install\"";
    }

    // ---- the service ----

    // The first stage of the start.
    void Initialise() { EXPECT_EQ(service->DoInitialization(), 0u); }
    // Enters the package's names, as the first stage does.
    void Identify() {
        ASSERT_TRUE(IsRunningFromMSIXPackage());
        service->m_packageContext.m_bIsPackage = 1;
    }
    // Until its result is in the log.
    void AwaitRecovery() {
        EXPECT_TRUE(Eventually([&] {
            return LogCount("Recovery Environment script ran") +
                           LogCount("Recovery Environment script encountered") >
                       0 &&
                   service->m_packageContext.m_bRecoveryConfigDone == 1;
        })) << "the recovery environment is not configured";
    }
    // The messages of a function's lines, without the others.
    std::vector<std::string> LinesWith(const std::string& text) const {
        std::vector<std::string> lines;
        for (const LogLine& line : Log())
            if (line.message.find(text) != std::string::npos)
                lines.push_back(line.level + " " + line.message);
        return lines;
    }
};
