#include "service/Log.h"

#include <winsock2.h>
#include <windows.h>

#include <cstdarg>
#include <cstdio>

#include "service/ZELLogger.h"

void logging::Write(Level level, const char* format, ...) {
    // Callers report GetLastError more than once along the way.
    const DWORD error = GetLastError();
    char message[kMessageSize];
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(message, sizeof message, format, arguments);
    va_end(arguments);
    ZELLogger* const logger = ZELLogger::Instance();
    if (length < 0 || !logger) return;
    constexpr const char* kTag = "ZELService";
    switch (level) {
        case Level::Info:
            logger->LogInfo(kTag, message);
            break;
        case Level::Warn:
            logger->LogWarn(kTag, message);
            break;
        case Level::Error:
            logger->LogError(kTag, message);
            break;
        case Level::Debug:
            logger->LogDebug(kTag, message);
            break;
        case Level::Trace:
            logger->LogTrace(kTag, message);
            break;
    }
    SetLastError(error);
}
