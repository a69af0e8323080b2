// The Windows event log.
#include <windows.h>

#include <algorithm>
#include <string>

#include "winhost/core/Gate.h"
#include "winhost/core/HandleTable.h"
#include "winhost/core/Results.h"
#include "winhost/pc/Pc.h"

using winhost::Fail;

namespace {

class EventSource final : public winhost::Object {
  public:
    explicit EventSource(std::string name) : m_name(std::move(name)) {}
    bool IsClosedByCloseHandle() const override { return false; }
    const std::string& Name() const { return m_name; }

  private:
    const std::string m_name;
};

bool IsEventType(WORD type) {
    constexpr WORD kTypes[] = {EVENTLOG_SUCCESS,          EVENTLOG_ERROR_TYPE,    EVENTLOG_WARNING_TYPE,
                               EVENTLOG_INFORMATION_TYPE, EVENTLOG_AUDIT_SUCCESS, EVENTLOG_AUDIT_FAILURE};
    return std::find(std::begin(kTypes), std::end(kTypes), type) != std::end(kTypes);
}

}  // namespace

HANDLE RegisterEventSourceA(LPCSTR server, LPCSTR source) {
    WINHOST_GATE("RegisterEventSourceA", nullptr);
    if (!source) return Fail(ERROR_INVALID_PARAMETER, nullptr);
    if (server && *server) return Fail(RPC_S_SERVER_UNAVAILABLE, nullptr);
    // An empty name is legal: such entries stand in the application log without a source.
    return winhost::AddHandle(std::make_shared<EventSource>(source));
}

BOOL ReportEventA(HANDLE log, WORD type, WORD, DWORD eventId, PSID, WORD stringCount, DWORD, LPCSTR* strings,
                  LPVOID) {
    WINHOST_GATE("ReportEventA", FALSE);
    const auto source = winhost::HandleTable::Instance().Find<EventSource>(log);
    if (!source) return Fail(ERROR_INVALID_HANDLE, FALSE);
    if (!IsEventType(type) || (stringCount != 0 && !strings)) return Fail(ERROR_INVALID_PARAMETER, FALSE);
    winhost::EventLogEntry entry{source->Name(), type, eventId, {}};
    for (WORD i = 0; i < stringCount; ++i)
        entry.strings.emplace_back(strings[i] ? strings[i] : "");
    winhost::Pc::Instance().Record(std::move(entry));
    return TRUE;
}

BOOL DeregisterEventSource(HANDLE log) {
    WINHOST_GATE("DeregisterEventSource", FALSE);
    return winhost::HandleTable::Instance().Close<EventSource>(log) ? TRUE
                                                                    : Fail(ERROR_INVALID_HANDLE, FALSE);
}
