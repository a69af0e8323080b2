// Opens the log in the working folder and writes its first lines.
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "base/Log.h"
#include "base/SecureFolder.h"
#include "base/Version.h"
#include "base/ZELLogger.h"
#include "service/ZELService.h"
#include "state/LogFileName.h"

namespace {

constexpr uint64_t kMaxLogSize = 0xA00000;

// Keeps the remarks until the log is open.
class FolderPreparation {
  public:
    bool Secure(const std::string& path, Contents contents) {
        const SecuredFolder folder = SecureFolder(path, contents);
        if (!folder.remark.empty()) m_remarks.push_back(path + " " + folder.remark);
        return folder.isSecure;
    }
    void LogRemarks() const {
        for (const std::string& remark : m_remarks)
            LogWarn("InitializeLogging: %s", remark);
    }

  private:
    std::vector<std::string> m_remarks;
};

struct ClosePipe {
    void operator()(FILE* pipe) const { _pclose(pipe); }
};

void LogOsVersion() {
    const std::unique_ptr<FILE, ClosePipe> pipe(_popen("ver", "r"));
    if (!pipe) {
        LogWarn("Get OS version failed.");
        return;
    }
    char text[128] = "";
    while (std::fgets(text, sizeof text, pipe.get())) {
    }
    // The last character of the last line is its line break.
    if (const size_t length = std::strlen(text)) text[length - 1] = '\0';
    LogInfo("OS Version = %s", text);
}

}  // namespace

bool ZELService::InitializeLogging() {
    FolderPreparation folders;
    bool isMakerSecure = folders.Secure(GetMakerFolder(), Contents::Keep);
    if (!isMakerSecure) {
        LogEventMessage("ZELService failed to create Tarvix folder in ProgramData path", EVENTLOG_ERROR_TYPE);
        // The working folder is only as secure as the folder above.
        isMakerSecure = folders.Secure(GetMakerFolder(), Contents::Keep);
    }
    const std::string folder = GetWorkingFolder();
    m_bWorkingFolderSecure = isMakerSecure && folders.Secure(folder, Contents::RemoveUsers);
    if (!m_bWorkingFolderSecure) {
        LogEventMessage("ZELService failed to create Manageability folder in ProgramData path",
                        EVENTLOG_ERROR_TYPE);
        return false;
    }
    ZELLogger* const logger = ZELLogger::Instance();
    if (!logger ||
        !logger->OpenLog("zel", folder + "\\" + kLogFileName, folder, kMaxLogSize, ZELLogger::kOneBackup)) {
        LogEventMessage("ZELService failed to create log file", EVENTLOG_ERROR_TYPE);
        return false;
    }
    LogInfo("***   ZEL %s Logging started   ***", kServiceVersion);
    folders.LogRemarks();
    LogOsVersion();
    return true;
}
