// What the simulated PC remembers of what was done to it, for tests and the control socket. A new kind of
// record is a type with a Visit and an entry in Journal's list.
#pragma once

#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <tuple>
#include <vector>

namespace winhost {

// What the service reports to its control manager.
struct ServiceReport {
    uint32_t type = 0, state = 0, controlsAccepted = 0, win32ExitCode = 0, checkPoint = 0, waitHint = 0;

    // Each Visit calls visit(name, value) for what a record holds.
    template <class Visitor>
    void Visit(Visitor visit) const {
        visit("type", type);
        visit("state", state);
        visit("controlsAccepted", controlsAccepted);
        visit("win32ExitCode", win32ExitCode);
        visit("checkPoint", checkPoint);
        visit("waitHint", waitHint);
    }
};

// An entry of the Windows event log.
struct EventLogEntry {
    std::string source;
    uint16_t type = 0;
    uint32_t eventId = 0;
    std::vector<std::string> strings;

    template <class Visitor>
    void Visit(Visitor visit) const {
        visit("source", source);
        visit("type", type);
        visit("eventId", eventId);
        visit("strings", strings);
    }
};

// A change of the PC's power that was asked for, and granted.
struct PowerAction {
    std::string action;  // "shutdown", "reboot", "hibernate" or "sleep"
    std::string call;    // "InitiateSystemShutdownExA(null, null, 0, 1, 1, 0x80000000)"

    template <class Visitor>
    void Visit(Visitor visit) const {
        visit("action", action);
        visit("call", call);
    }
};

// A program that CreateProcessAsUserA has started.
struct ProcessLaunch {
    std::string commandLine, desktop;
    uint32_t session = 0, flags = 0;
    bool withEnvironment = false;  // a block was given
    uint32_t pid = 0;

    template <class Visitor>
    void Visit(Visitor visit) const {
        visit("commandLine", commandLine);
        visit("desktop", desktop);
        visit("session", session);
        visit("flags", flags);
        visit("environment", withEnvironment);
        visit("pid", pid);
    }
};

// A command given to the command processor, to the letter.
struct SystemCommand {
    std::string command;

    template <class Visitor>
    void Visit(Visitor visit) const {
        visit("command", command);
    }
};

// A text given to OutputDebugStringA.
struct DebugText {
    std::string text;

    template <class Visitor>
    void Visit(Visitor visit) const {
        visit("text", text);
    }
};

// A change of a described service.
struct ServiceAction {
    std::string service;
    std::string action;  // "start", "stop", "stopped", or "start type 3"

    template <class Visitor>
    void Visit(Visitor visit) const {
        visit("service", service);
        visit("action", action);
    }
};

// A change of a password that was asked for. The passwords themselves are kept nowhere.
struct PasswordChange {
    std::string domain, user;
    uint32_t result = 0;

    template <class Visitor>
    void Visit(Visitor visit) const {
        visit("domain", domain);
        visit("user", user);
        visit("result", result);
    }
};

// An argument that changes nothing on this PC, as it was given to the call.
struct CallArgument {
    std::string call, name;
    uint32_t value = 0;

    template <class Visitor>
    void Visit(Visitor visit) const {
        visit("call", call);
        visit("name", name);
        visit("value", value);
    }
};

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
