// The filter driver of a simulated PC, as tests lay it out and look at it.
#pragma once

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "winhost/pc/Pc.h"

namespace driverpc {

inline constexpr char kEnableBinding[] =
    "powershell -Command \"Set-NetAdapterBinding -Name 'Wi-Fi*' -DisplayName '*KelmarM*' -Enabled $True\"";
inline constexpr char kDisableBinding[] =
    "powershell -Command \"Set-NetAdapterBinding -Name 'Wi-Fi*' -DisplayName '*KelmarM*' -Enabled $False\"";

// A stopped driver that is started on demand, unless the test changes it.
inline winhost::DescribedService Driver() {
    winhost::DescribedService driver;
    driver.name = "KelmarMnf";
    return driver;
}
inline void Install(const winhost::DescribedService& driver) {
    winhost::Pc::Instance().Change([&](auto& pc) { pc.services = {driver}; });
}
inline winhost::DescribedService Installed() {
    return winhost::Pc::Instance().Description().services.at(0);
}
inline bool Runs() {
    return Installed().state == 4;
}

// A PowerShell that runs these lines of the shell, with the PC's root as its folder.
inline void WritePowerShell(const std::string& lines) {
    namespace fs = std::filesystem;
    const fs::path path = winhost::Pc::Instance().HostPath(R"(C:\Windows\System32\powershell.exe)");
    fs::create_directories(path.parent_path());
    std::ofstream(path) << "#!/bin/sh\n" << lines << "\n";
    fs::permissions(path, fs::perms::owner_all);
}

inline std::vector<std::string> Commands() {
    std::vector<std::string> commands;
    for (const auto& record : winhost::Pc::Instance().Records<winhost::SystemCommand>())
        commands.push_back(record.command);
    return commands;
}
inline std::vector<std::string> Actions() {
    std::vector<std::string> actions;
    for (const auto& record : winhost::Pc::Instance().Records<winhost::ServiceAction>())
        actions.push_back(record.action);
    return actions;
}

}  // namespace driverpc
