// The service's folders. All of them are below the PROGRAMDATA variable.
#include <stdlib.h>

#include <cstring>

#include "base/Log.h"
#include "state/ServiceState.h"

namespace {

constexpr const char* kProgramData = "PROGRAMDATA";
constexpr const char* kMakerFolder = "\\Tarvix";
constexpr const char* kWorkingFolder = "\\Tarvix\\Manageability";
constexpr const char* kStatusFile = "\\zel_json_data.txt";
constexpr const char* kDisplayMgrLog = "\\DisplayMgr.log";
constexpr const char* kTerminateFile = "\\terminate.txt";
constexpr const char* kRecoveryScript = "\\ConfigureRecoveryEnvironmentSupport.ps1";

}  // namespace

std::string ServiceState::GetProgramDataFolder() {
    std::lock_guard lock(m_pathCacheMutex);
    const auto known = m_pathCache.find(kProgramData);
    if (known != m_pathCache.end()) return known->second;
    size_t size = 0;
    getenv_s(&size, nullptr, 0, kProgramData);
    std::string folder(size, '\0');
    if (size > 0) {
        getenv_s(&size, folder.data(), folder.size(), kProgramData);
        folder.resize(std::strlen(folder.c_str()));
    } else {
        LogEventMessage("ProgramData Environment variable not found.", EVENTLOG_ERROR_TYPE);
        LogError("Error: PROGRAMDATA environment variable not found.");
    }
    // An absent variable is cached too. Later paths then lack their root.
    m_pathCache[kProgramData] = folder;
    return folder;
}

std::string ServiceState::CachedPath(const std::string& key, const std::string& root) {
    std::lock_guard lock(m_pathCacheMutex);
    return m_pathCache.try_emplace(key, root + key).first->second;
}

std::string ServiceState::GetMakerFolder() {
    return CachedPath(kMakerFolder, GetProgramDataFolder());
}

std::string ServiceState::GetWorkingFolder() {
    return CachedPath(kWorkingFolder, GetProgramDataFolder());
}

std::string ServiceState::GetStatusFilePath() {
    return CachedPath(kStatusFile, GetWorkingFolder());
}

std::string ServiceState::GetDisplayMgrLogPath() {
    return CachedPath(kDisplayMgrLog, GetWorkingFolder());
}

std::string ServiceState::GetTerminateFilePath() {
    return CachedPath(kTerminateFile, GetWorkingFolder());
}

std::string ServiceState::GetRecoveryScriptPath() {
    return CachedPath(kRecoveryScript, GetWorkingFolder());
}
