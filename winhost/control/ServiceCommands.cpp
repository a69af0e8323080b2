// The controls that the service's control manager delivers.
#include <winsvc.h>
#include <windows.h>

#include <map>

#include "winhost/control/Commands.h"
#include "winhost/service/Scm.h"

namespace winhost {
namespace {

constexpr uint32_t kPowerStatusChange = 10;

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
    {"suspend", SERVICE_CONTROL_POWEREVENT, PBT_APMSUSPEND},
    {"standby", SERVICE_CONTROL_POWEREVENT, PBT_APMSTANDBY},
    {"resume-critical", SERVICE_CONTROL_POWEREVENT, PBT_APMRESUMECRITICAL},
    {"resume-suspend", SERVICE_CONTROL_POWEREVENT, PBT_APMRESUMESUSPEND},
    {"resume-standby", SERVICE_CONTROL_POWEREVENT, PBT_APMRESUMESTANDBY},
    {"power-status-change", SERVICE_CONTROL_POWEREVENT, kPowerStatusChange},
    {"resume-automatic", SERVICE_CONTROL_POWEREVENT, PBT_APMRESUMEAUTOMATIC},
};

std::string NamesOfControls() {
    std::string names;
    for (const NamedControl& named : kNamedControls)
        names += (names.empty() ? "" : ", ") + std::string(named.name);
    return names;
}

NamedControl ControlOf(const Json::Value& request) {
    NamedControl control{"", 0, 0};
    if (request["code"].isString()) {
        const std::string name = request["code"].asString();
        for (const NamedControl& named : kNamedControls)
            if (name == named.name) control = named;
        if (control.control == 0)
            throw CommandError("unknown control \"" + name + "\"; there are " + NamesOfControls());
    } else {
        control.control = Unsigned32Of(request, "code", 1);
    }
    control.eventType = Unsigned32Or(request, "event", control.eventType);
    return control;
}

std::string RefusalText(uint32_t error) {
    static const std::map<uint32_t, std::string> kTexts = {
        {ERROR_INVALID_SERVICE_CONTROL, "the service does not accept this control"},
        {ERROR_SERVICE_CANNOT_ACCEPT_CTRL, "the service cannot take controls at this time"},
        {ERROR_SERVICE_NOT_ACTIVE, "no service runs"},
        {ERROR_SERVICE_REQUEST_TIMEOUT, "the service's handler has not returned in time"}};
    const auto text = kTexts.find(error);
    return text == kTexts.end() ? "not delivered" : text->second;
}

Json::Value Control(const Json::Value& request) {
    const NamedControl control = ControlOf(request);
    const auto delivery = FlagOf(request, "force") ? Scm::Delivery::Forced : Scm::Delivery::AsAccepted;
    const uint32_t error = Scm::Instance().Control(control.control, control.eventType, nullptr, delivery);
    if (error != 0) throw CommandError("error " + std::to_string(error) + ": " + RefusalText(error));
    return "delivered";
}

}  // namespace

std::vector<Command> ServiceCommands() {
    return {
        {"control",
         "delivers a service control and answers when its handler has returned",
         Control,
         {{"code", Argument::Kind::NumberOrName, "a number, or " + NamesOfControls()},
          {"event", Argument::Kind::Number, "the event type of a power event", false},
          {"force", Argument::Kind::Flag, "also one that the service does not accept"}}},
    };
}

}  // namespace winhost
