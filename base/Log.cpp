#include "base/Log.h"

#include <winsock2.h>
#include <windows.h>

#include "base/ZELLogger.h"

namespace {

void Pass(ZELLogger& logger, logging::Level level, const char* message) {
    using logging::Level;
    constexpr const char* kTag = "ZELService";
    switch (level) {
        case Level::Info:
            return logger.LogInfo(kTag, message);
        case Level::Warn:
            return logger.LogWarn(kTag, message);
        case Level::Error:
            return logger.LogError(kTag, message);
        case Level::Debug:
            return logger.LogDebug(kTag, message);
        case Level::Trace:
            return logger.LogTrace(kTag, message);
    }
}

}  // namespace

void logging::Write(Level level, const FormatView& format, std::initializer_list<Value> values) {
    // Callers report GetLastError more than once along the way.
    const DWORD error = GetLastError();
    if (ZELLogger* const logger = ZELLogger::Instance())
        Pass(*logger, level, Assemble(format, values).Text());
    SetLastError(error);
}
