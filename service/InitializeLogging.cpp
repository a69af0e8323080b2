// Opens the log in the working folder and writes its first lines.
#include <shlobj.h>

#include <cstdio>
#include <cstring>
#include <memory>

#include "base/Log.h"
#include "base/Version.h"
#include "base/ZELLogger.h"
#include "service/ZELService.h"

namespace {

constexpr uint64_t kMaxLogSize = 0xA00000;

bool CreateFolder(const std::string& path) {
    const int result = SHCreateDirectoryExA(nullptr, path.c_str(), nullptr);
    return result == ERROR_SUCCESS || result == ERROR_ALREADY_EXISTS;
}

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
    if (!CreateFolder(GetMakerFolder()))
        LogEventMessage("ZELService failed to create Tarvix folder in ProgramData path", EVENTLOG_ERROR_TYPE);
    const std::string folder = GetWorkingFolder();
    if (!CreateFolder(folder)) {
        LogEventMessage("ZELService failed to create Manageability folder in ProgramData path",
                        EVENTLOG_ERROR_TYPE);
        return false;
    }
    ZELLogger* const logger = ZELLogger::Instance();
    if (!logger ||
        !logger->OpenLog("zel", folder + "\\zel.log", folder, kMaxLogSize, ZELLogger::kOneBackup)) {
        LogEventMessage("ZELService failed to create log file", EVENTLOG_ERROR_TYPE);
        return false;
    }
    LogInfo("***   ZEL %s Logging started   ***", kServiceVersion);
    LogOsVersion();
    return true;
}
