// A service that runs from a package of any name, in any folder: what it copies, and the commands that it
// gives to the command processor.
#include <winsock2.h>
#include <windows.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <tuple>

#include "base/ZELLogger.h"
#include "fuzz/Input.h"
#include "fuzz/support/LogTail.h"
#include "fuzz/support/Loopback.h"
#include "fuzz/support/Wire.h"
#include "package/PackageDeployment.h"
#include "service/ZELService.h"
#include "tests/support/Laptop.h"
#include "winhost/pc/Pc.h"

namespace fs = std::filesystem;

namespace {

constexpr uint64_t kMostLog = 1 << 20;  // bytes
constexpr auto kPatience = std::chrono::seconds(20);
constexpr size_t kMostCommands = 6;

// A package that is on the PC.
constexpr char kPackage[] = R"(C:\Program Files\WindowsApps\Tarvix.ZEL)";
constexpr char kCleanupScript[] = "ZELUninstallCleanup.ps1";
constexpr const char* kCopies[] = {"ZELKVMApp.exe", "WiFiSyncDataReader.exe", kCleanupScript,
                                   "ConfigureRecoveryEnvironmentSupport.ps1"};
// Without programs; with a scheduler that has no task; with one that has all of them, and a PowerShell that
// fails.
constexpr const char* kTools[] = {R"(C:\none)", R"(C:\tools\new)", R"(C:\tools\old)"};

void AddFile(const std::string& path) {
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream(path) << "#!/bin/sh\n";
}

void AddProgram(const std::string& path, const char* target) {
    fs::create_directories(fs::path(path).parent_path());
    fs::create_symlink(target, path);
}

// The service and the drive of its PC, kept over all inputs.
class PackagedPc {
  public:
    PackagedPc() : m_description(DescribeLaptop(fuzz::SocketFolder() + "/pc")) {
        Reset({}, kTools[0]);
        const auto& pc = winhost::Pc::Instance();
        for (const std::string name :
             {R"(\KVM_Agent\ZELKVMApp.exe)", R"(\WiFiSyncDataReader\WiFiSyncDataReader.exe)",
              R"(\scripts\ZELUninstallCleanup.ps1)", R"(\scripts\ConfigureRecoveryEnvironmentSupport.ps1)"})
            AddFile(pc.HostPath(kPackage + name));
        for (const auto& [name, inNew, inOld] : {std::tuple{"schtasks.exe", "/bin/false", "/bin/true"},
                                                 std::tuple{"powershell.exe", "/bin/true", "/bin/false"}}) {
            AddProgram(pc.HostPath(std::string(kTools[1]) + "\\" + name), inNew);
            AddProgram(pc.HostPath(std::string(kTools[2]) + "\\" + name), inOld);
        }
        const std::string folder = service->GetWorkingFolder();
        fs::create_directories(pc.HostPath(folder));
        fuzz::Require(ZELLogger::Instance()->OpenLog("zel", folder + "\\zel.log", folder, kMostLog,
                                                     ZELLogger::kOneBackup),
                      "the log can be opened");
        log.Follow(pc.HostPath(folder + "\\zel.log"));
    }

    void Reset(const winhost::Package& package, const char* tools) {
        winhost::PcDescription description = m_description;
        description.package = package;
        description.environment["PATH"] = tools;
        winhost::Pc::Instance().Reset(description);
        if (!service) service = std::make_unique<ZELService>("");
        service->m_packageContext.m_packageFullName.clear();
        service->m_packageContext.m_packagePath.clear();
        service->m_bWorkingFolderSecure = true;
    }
    std::string Copy(const char* name) const {
        return winhost::Pc::Instance().HostPath(service->GetWorkingFolder() + "\\" + name);
    }

    std::unique_ptr<ZELService> service;
    fuzz::LogTail log;

  private:
    const winhost::PcDescription m_description;
};

// Never destroyed by itself: statics of the service go before those that are made after them.
PackagedPc& ThePc() {
    static PackagedPc& pc = *[] {
        auto* const made = new PackagedPc;
        std::atexit([] {
            ZELLogger::Instance()->CloseLog();
            ThePc().service.reset();
        });
        return made;
    }();
    return pc;
}

// No text of Windows' holds a NUL.
std::string Text(fuzz::Bytes bytes) {
    const std::string text = fuzz::TextOf(bytes);
    return text.substr(0, text.find('\0'));
}

bool IsPlain(const std::string& text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

bool Identify(const winhost::Package& package) {
    const bool isPackage = IsRunningFromMSIXPackage();
    fuzz::Require(isPackage == (!package.fullName.empty() && !package.path.empty()),
                  "a package has a name and a folder");
    const PackageContext& context = g_pServiceState->m_packageContext;
    if (isPackage && IsPlain(package.fullName))
        fuzz::Require(context.m_packageFullName == package.fullName, "the name arrives as it is");
    if (isPackage && IsPlain(package.path))
        fuzz::Require(context.m_packagePath == package.path, "the folder arrives as it is");
    return isPackage;
}

// The configuration of the recovery environment runs on a thread.
void AwaitThreads(size_t most) {
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (fuzz::CountThreads() > most) {
        fuzz::Require(std::chrono::steady_clock::now() < deadline, "every thread ends");
        std::this_thread::sleep_for(std::chrono::microseconds(50));
    }
    fuzz::Require(g_pServiceState->m_packageContext.m_bRecoveryConfigDone == 1,
                  "the recovery environment is configured in the end");
}

void CheckCommands(const winhost::Package& package, bool isSecondStart) {
    const auto commands = winhost::Pc::Instance().Records<winhost::SystemCommand>();
    fuzz::Require(commands.size() <= kMostCommands, "a start gives few commands");
    const std::string& folder = g_pServiceState->m_packageContext.m_packagePath;
    const std::string powerShell = "PowerShell -NoProfile -ExecutionPolicy Bypass ";
    size_t starts = 0, trays = 0, recoveries = 0;
    for (const auto& [command] : commands) {
        fuzz::Require(command.starts_with("schtasks /query /tn \"") || command.starts_with(powerShell + "-"),
                      "only the scheduler and PowerShell are run", command);
        starts += command.starts_with(powerShell + "-Command \"&'" + folder + "\\scripts\\StartZEL.ps1' '");
        trays += command.starts_with(powerShell + "-File \"" + folder +
                                     "\\scripts\\RegisterStartZELTrayUI.ps1\" -PackageFamilyName \"");
        recoveries += command.ends_with("ConfigureRecoveryEnvironmentSupport.ps1' -Action Install\"");
    }
    fuzz::Require(starts == 1 || starts == 2, "the tasks are registered from the package's folder");
    fuzz::Require(trays <= (package.familyName.empty() ? 0 : 1), "only an application with a name is shown");
    fuzz::Require(recoveries == (isSecondStart ? 0 : 1), "a first start configures the recovery environment");
}

// Nothing is written but the log and the copies.
void CheckFiles(const PackagedPc& pc) {
    for (const auto& entry : fs::directory_iterator(fs::path(pc.Copy("zel.log")).parent_path())) {
        const std::string name = entry.path().filename().string();
        fuzz::Require(name.starts_with("zel.lo") || std::count(std::begin(kCopies), std::end(kCopies), name),
                      "no other file is created", name);
    }
    for (const auto& entry : fs::directory_iterator("C:"))
        fuzz::Require(entry.is_directory(), "no file is created outside of the working folder",
                      entry.path().filename().string());
}

}  // namespace

FUZZ_TARGET(package) {
    fuzz::Input from(input);
    const uint8_t how = from.Byte();
    const bool isSecondStart = how & 4;
    winhost::Package package;
    package.fullName = Text(from.Block());
    package.path = Text(from.LongBlock());
    package.familyName = Text(from.Block());
    PackagedPc& pc = ThePc();
    pc.Reset(package, kTools[(how & 3) % std::size(kTools)]);
    if (isSecondStart) AddFile(pc.Copy(kCleanupScript));
    const size_t threads = fuzz::CountThreads();
    if (Identify(package)) {
        PreparePackage();
        AwaitThreads(threads);
        CheckCommands(package, isSecondStart);
        CheckFiles(pc);
        fuzz::Require(
            package.path != kPackage || (fs::exists(pc.Copy(kCopies[0])) && fs::exists(pc.Copy(kCopies[1]))),
            "the programs of a package are copied");
        DeleteKVMAgent();
        DeleteWiFiSyncDataReader();
        fuzz::Require(!fs::exists(pc.Copy(kCopies[0])) && !fs::exists(pc.Copy(kCopies[1])),
                      "the programs are gone in the end");
    }
    for (const char* name : kCopies)
        fs::remove(pc.Copy(name));
    pc.log.Look();
}
