// The Windows event log, the only report of what fails before the log file exists.
#include <cstdio>

#include "base/Handles.h"
#include "state/ServiceState.h"

void ServiceState::LogEventMessage(const char* text, WORD eventType) {
    constexpr DWORD kEventIdentifier = 0xC0020001;
    const DWORD error = GetLastError();
    const UniqueEventSource source(RegisterEventSourceA(nullptr, m_ServiceName.c_str()));
    if (!source) return;
    char message[128] = "";
    switch (eventType) {
        case EVENTLOG_INFORMATION_TYPE:
            std::snprintf(message, sizeof message, "%s", text);
            break;
        case EVENTLOG_SUCCESS:
            std::snprintf(message, sizeof message, "%s - successful", text);
            break;
        default:
            std::snprintf(message, sizeof message, "%s failed with error: %d", text, static_cast<int>(error));
    }
    const char* strings[] = {m_ServiceName.c_str(), message};
    ReportEventA(source.Get(), eventType, 0, kEventIdentifier, nullptr, 2, 0, strings, nullptr);
}
