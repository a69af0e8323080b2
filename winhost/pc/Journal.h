// What the simulated PC remembers of what was done to it, for tests and the control socket. A new kind of
// record is a type with its fields and an entry in Journal's list.
#pragma once

#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <tuple>
#include <vector>

#include "winhost/pc/Fields.h"

namespace winhost {

// What the service reports to its control manager.
struct ServiceReport {
    uint32_t type = 0, state = 0, controlsAccepted = 0, win32ExitCode = 0, checkPoint = 0, waitHint = 0;
};
WINHOST_FIELDS(ServiceReport, type, state, controlsAccepted, win32ExitCode, checkPoint, waitHint)

// An entry of the Windows event log.
struct EventLogEntry {
    std::string source;
    uint16_t type = 0;
    uint32_t eventId = 0;
    std::vector<std::string> strings;
};
WINHOST_FIELDS(EventLogEntry, source, type, eventId, strings)

// A change of the PC's power that was asked for, and granted.
struct PowerAction {
    std::string action;  // "shutdown", "reboot", "hibernate" or "sleep"
    std::string call;    // "InitiateSystemShutdownExA(null, null, 0, 1, 1, 0x80000000)"
};
WINHOST_FIELDS(PowerAction, action, call)

// A program that CreateProcessAsUserA has started.
struct ProcessLaunch {
    std::string commandLine, desktop;
    uint32_t session = 0, flags = 0;
    bool environment = false;  // a block was given
    uint32_t pid = 0;
};
WINHOST_FIELDS(ProcessLaunch, commandLine, desktop, session, flags, environment, pid)

// A command given to the command processor, to the letter.
struct SystemCommand {
    std::string command;
};
WINHOST_FIELDS(SystemCommand, command)

// A text given to OutputDebugStringA.
struct DebugText {
    std::string text;
};
WINHOST_FIELDS(DebugText, text)

// A change of a described service.
struct ServiceAction {
    std::string service;
    std::string action;  // "start", "stop", "stopped", or "start type 3"
};
WINHOST_FIELDS(ServiceAction, service, action)

// A change of a password that was asked for. The passwords themselves are kept nowhere.
struct PasswordChange {
    std::string domain, user;
    uint32_t result = 0;
};
WINHOST_FIELDS(PasswordChange, domain, user, result)

// An argument that changes nothing on this PC, as it was given to the call.
struct CallArgument {
    std::string call, name;
    uint32_t value = 0;
};
WINHOST_FIELDS(CallArgument, call, name, value)

// Any thread may use it.
class Journal {
  public:
    // Of each kind the last ones are kept, so that a run of days does not fill the memory.
    static constexpr size_t kMostOfAKind = 10'000;

    template <class Record>
    void Add(Record record) {
        std::lock_guard lock(m_mutex);
        auto& records = std::get<std::deque<Record>>(m_records);
        if (records.size() == kMostOfAKind) records.pop_front();
        records.push_back(std::move(record));
    }
    // Oldest first.
    template <class Record>
    std::vector<Record> All() const {
        std::lock_guard lock(m_mutex);
        const auto& records = std::get<std::deque<Record>>(m_records);
        return {records.begin(), records.end()};
    }
    void Clear() {
        std::lock_guard lock(m_mutex);
        m_records = {};
    }

  private:
    mutable std::mutex m_mutex;
    std::tuple<std::deque<ServiceReport>, std::deque<EventLogEntry>, std::deque<PowerAction>,
               std::deque<ProcessLaunch>, std::deque<SystemCommand>, std::deque<DebugText>,
               std::deque<CallArgument>, std::deque<ServiceAction>, std::deque<PasswordChange>>
        m_records;
};

}  // namespace winhost
