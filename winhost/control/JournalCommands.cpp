// What the PC remembers of what was done to it.
#include <array>

#include "winhost/control/Commands.h"
#include "winhost/pc/Pc.h"

namespace winhost {
namespace {

Json::Value ToJson(const std::vector<std::string>& texts) {
    Json::Value json(Json::arrayValue);
    for (const std::string& text : texts)
        json.append(text);
    return json;
}

template <class Value>
Json::Value ToJson(const Value& value) {
    return value;
}

template <class Record>
Json::Value RecordToJson(const Record& record) {
    Json::Value json(Json::objectValue);
    const auto add = [&](const char* name, const auto& value) { json[name] = ToJson(value); };
    VisitFields(add, record);
    return json;
}

Json::Value RecordToJson(const ServiceReport& report) {
    constexpr std::array kStates = {"none",    "stopped",          "start pending", "stop pending",
                                    "running", "continue pending", "pause pending", "paused"};
    Json::Value json = RecordToJson<ServiceReport>(report);
    json["stateName"] = report.state < kStates.size() ? kStates[report.state] : "unknown";
    return json;
}

template <class Record>
Json::Value List(const Json::Value&) {
    Json::Value list(Json::arrayValue);
    for (const Record& record : Pc::Instance().Records<Record>())
        list.append(RecordToJson(record));
    return list;
}

Json::Value Status(const Json::Value&) {
    const auto reports = Pc::Instance().Records<ServiceReport>();
    return RecordToJson(reports.empty() ? ServiceReport{} : reports.back());
}

}  // namespace

std::vector<Command> JournalCommands() {
    return {
        {"status", "the service's last report to its control manager", Status},
        {"reports", "all its reports", List<ServiceReport>},
        {"event-log", "the entries of the event log", List<EventLogEntry>},
        {"power-actions", "the shutdowns, reboots, hibernations and sleeps that were asked for",
         List<PowerAction>},
        {"launches", "the programs that were started in a session", List<ProcessLaunch>},
        {"service-actions", "the starts, stops and start types of described services that were asked for",
         List<ServiceAction>},
        {"commands", "the commands that were given to the command processor", List<SystemCommand>},
        {"password-changes", "the changes of passwords in the directory that were asked for",
         List<PasswordChange>},
        {"debug-texts", "the texts for a debugger", List<DebugText>},
    };
}

}  // namespace winhost
