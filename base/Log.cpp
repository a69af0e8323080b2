#include "base/Log.h"

#include <winsock2.h>
#include <windows.h>

#include <cstdarg>
#include <cstdio>

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

void logging::Write(Level level, const char* format, ...) {
    // Callers report GetLastError more than once along the way.
    const DWORD error = GetLastError();
    char message[kMessageSize];
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(message, sizeof message, format, arguments);
    va_end(arguments);
    if (ZELLogger* const logger = ZELLogger::Instance(); logger && length >= 0) Pass(*logger, level, message);
    SetLastError(error);
}
