// The service as its control manager and the event log see it.
#include <winsvc.h>
#include <windows.h>

#include <array>
#include <limits>

#include "winhost/control/Commands.h"
#include "winhost/pc/Pc.h"
#include "winhost/service/Scm.h"

namespace winhost {
namespace {

constexpr uint32_t kSuspend = 4, kStandby = 5, kResumeCritical = 6, kResumeSuspend = 7, kResumeStandby = 8;
constexpr uint32_t kPowerStatusChange = 10, kResumeAutomatic = 18;

struct NamedControl {
    const char* name;
    uint32_t control;
    uint32_t eventType;
};
constexpr NamedControl kNamedControls[] = {
    {"stop", SERVICE_CONTROL_STOP, 0},
    {"pause", SERVICE_CONTROL_PAUSE, 0},
    {"continue", SERVICE_CONTROL_CONTINUE, 0},
    {"interrogate", SERVICE_CONTROL_INTERROGATE, 0},
    {"shutdown", SERVICE_CONTROL_SHUTDOWN, 0},
    {"preshutdown", SERVICE_CONTROL_PRESHUTDOWN, 0},
    {"session-change", SERVICE_CONTROL_SESSIONCHANGE, 0},
    {"suspend", SERVICE_CONTROL_POWEREVENT, kSuspend},
    {"standby", SERVICE_CONTROL_POWEREVENT, kStandby},
    {"resume-critical", SERVICE_CONTROL_POWEREVENT, kResumeCritical},
    {"resume-suspend", SERVICE_CONTROL_POWEREVENT, kResumeSuspend},
    {"resume-standby", SERVICE_CONTROL_POWEREVENT, kResumeStandby},
    {"power-status-change", SERVICE_CONTROL_POWEREVENT, kPowerStatusChange},
    {"resume-automatic", SERVICE_CONTROL_POWEREVENT, kResumeAutomatic},
};

const char* StateName(uint32_t state) {
    constexpr std::array kNames = {"none",    "stopped",          "start pending", "stop pending",
                                   "running", "continue pending", "pause pending", "paused"};
    return state < kNames.size() ? kNames[state] : "unknown";
}

Json::Value ToJson(const ServiceReport& report) {
    Json::Value json(Json::objectValue);
    json["type"] = report.type;
    json["state"] = report.state;
    json["stateName"] = StateName(report.state);
    json["controlsAccepted"] = report.controlsAccepted;
    json["win32ExitCode"] = report.win32ExitCode;
    json["checkPoint"] = report.checkPoint;
    json["waitHint"] = report.waitHint;
    return json;
}

Json::Value Status(const Json::Value&) {
    const auto reports = Pc::Instance().ServiceReports();
    return ToJson(reports.empty() ? ServiceReport{} : reports.back());
}

Json::Value Reports(const Json::Value&) {
    Json::Value list(Json::arrayValue);
    for (const ServiceReport& report : Pc::Instance().ServiceReports())
        list.append(ToJson(report));
    return list;
}

std::string NamesOfControls() {
    std::string names;
    for (const NamedControl& named : kNamedControls)
        names += (names.empty() ? "" : ", ") + std::string(named.name);
    return names;
}

NamedControl ControlOf(const Json::Value& request) {
    constexpr int64_t kHighest = std::numeric_limits<uint32_t>::max();
    NamedControl control{"", 0, 0};
    if (request["code"].isString()) {
        const std::string name = request["code"].asString();
        for (const NamedControl& named : kNamedControls)
            if (name == named.name) control = named;
        if (control.control == 0)
            throw CommandError("unknown control \"" + name + "\"; there are " + NamesOfControls());
    } else {
        control.control = static_cast<uint32_t>(NumberOf(request, "code", 1, kHighest));
    }
    if (request.isMember("event"))
        control.eventType = static_cast<uint32_t>(NumberOf(request, "event", 0, kHighest));
    return control;
}

std::string RefusalText(uint32_t error) {
    switch (error) {
        case ERROR_INVALID_SERVICE_CONTROL:
            return "the service does not accept this control";
        case ERROR_SERVICE_CANNOT_ACCEPT_CTRL:
            return "the service cannot take controls at this time";
        case ERROR_SERVICE_NOT_ACTIVE:
            return "no service runs";
        default:
            return "not delivered";
    }
}

Json::Value Control(const Json::Value& request) {
    const NamedControl control = ControlOf(request);
    const auto delivery = FlagOf(request, "force") ? Scm::Delivery::Forced : Scm::Delivery::AsAccepted;
    const uint32_t error = Scm::Instance().Control(control.control, control.eventType, nullptr, delivery);
    if (error != 0) throw CommandError("error " + std::to_string(error) + ": " + RefusalText(error));
    return "delivered";
}

Json::Value EventLog(const Json::Value&) {
    Json::Value list(Json::arrayValue);
    for (const EventLogEntry& entry : Pc::Instance().EventLog()) {
        Json::Value json(Json::objectValue);
        json["source"] = entry.source;
        json["type"] = entry.type;
        json["eventId"] = entry.eventId;
        json["strings"] = Json::arrayValue;
        for (const std::string& text : entry.strings)
            json["strings"].append(text);
        list.append(json);
    }
    return list;
}

}  // namespace

std::vector<Command> ServiceCommands() {
    return {
        {"status", "the service's last report to its control manager", Status},
        {"reports", "all its reports", Reports},
        {"control",
         "code (a number, or " + NamesOfControls() +
             "), event, force: delivers a control and answers when its handler has returned; force delivers "
             "one that the service does not accept",
         Control},
        {"event-log", "the entries of the event log", EventLog},
    };
}

}  // namespace winhost
