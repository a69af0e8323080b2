#include "winhost/process/ProgramSearch.h"

#include <strings.h>

#include <algorithm>
#include <filesystem>

#include "winhost/pc/Pc.h"

namespace winhost {

namespace {

namespace fs = std::filesystem;

constexpr const char* kFolders =
    R"(C:\Windows\System32;C:\Windows;C:\Windows\System32\Wbem;C:\Windows\System32\WindowsPowerShell\v1.0)";

std::string OwnProgramFolder() {
    const std::string path = Pc::Instance().Get(&PcDescription::modulePath);
    const size_t separator = path.find_last_of('\\');
    return separator == std::string::npos ? "" : path.substr(0, separator);
}

}  // namespace

std::optional<std::string> FileIn(const std::string& folder, const std::string& name) {
    std::error_code error;
    // Any other folder could be one of Linux.
    if (!HasDrive(folder) || folder.find("..") != std::string::npos) return std::nullopt;
    for (const auto& entry : fs::directory_iterator(Pc::Instance().HostPath(folder), error)) {
        const std::string found = entry.path().filename().string();
        if (strcasecmp(found.c_str(), name.c_str()) == 0 && entry.is_regular_file(error))
            return std::string(folder).append("\\").append(found);
    }
    return std::nullopt;
}

std::vector<std::string> SearchPath() {
    std::string path = kFolders;
    for (const auto& [name, value] : Pc::Instance().Description().environment)
        if (strcasecmp(name.c_str(), "PATH") == 0) path = value;
    std::vector<std::string> folders;
    for (size_t begin = 0; begin < path.size();) {
        const size_t end = std::min(path.find(';', begin), path.size());
        std::string folder = path.substr(begin, end - begin);
        while (folder.ends_with('\\'))
            folder.pop_back();
        if (!folder.empty()) folders.push_back(std::move(folder));
        begin = end + 1;
    }
    return folders;
}

std::vector<std::string> ProgramFolders() {
    std::vector<std::string> folders = {OwnProgramFolder(), R"(C:\Windows\System32)", R"(C:\Windows\System)",
                                        R"(C:\Windows)"};
    for (std::string& folder : SearchPath())
        folders.push_back(std::move(folder));
    return folders;
}

}  // namespace winhost
