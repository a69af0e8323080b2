// The PC's radio and its power: what Windows would tell of the one, and what it was told to do with the
// other.
#include <limits>

#include "winhost/control/Commands.h"
#include "winhost/pc/Pc.h"
#include "winhost/wlan/WlanService.h"

namespace winhost {
namespace {

constexpr int64_t kHighest = std::numeric_limits<uint32_t>::max();

struct NamedState {
    const char* name;
    uint32_t state;
};
constexpr NamedState kStates[] = {
    {"not-ready", wlan_interface_state_not_ready},
    {"connected", wlan_interface_state_connected},
    {"ad-hoc", wlan_interface_state_ad_hoc_network_formed},
    {"disconnecting", wlan_interface_state_disconnecting},
    {"disconnected", wlan_interface_state_disconnected},
    {"associating", wlan_interface_state_associating},
    {"discovering", wlan_interface_state_discovering},
    {"authenticating", wlan_interface_state_authenticating},
};

uint32_t StateOf(const Json::Value& request) {
    if (request["state"].isString()) {
        for (const NamedState& named : kStates)
            if (request["state"].asString() == named.name) return named.state;
        throw CommandError("unknown state \"" + request["state"].asString() + "\"");
    }
    return static_cast<uint32_t>(NumberOf(request, "state", 0, std::size(kStates) - 1));
}

uint32_t InterfaceOf(const Json::Value& request) {
    return request.isMember("interface") ? static_cast<uint32_t>(NumberOf(request, "interface", 0, kHighest))
                                         : 0;
}

Json::Value Interfaces() {
    Json::Value list(Json::arrayValue);
    for (const WlanInterface& wlan : Pc::Instance().Description().wlanInterfaces) {
        Json::Value json(Json::objectValue);
        json["guid"] = wlan.guid;
        json["description"] = wlan.description;
        json["state"] = kStates[wlan.state % std::size(kStates)].name;
        list.append(json);
    }
    return list;
}

Json::Value Wlan(const Json::Value& request) {
    const std::string action = TextOf(request, "action");
    if (action == "notify") {
        WlanNotification notification;
        notification.code = static_cast<uint32_t>(NumberOf(request, "code", 0, kHighest));
        if (request.isMember("source")) {
            notification.source = static_cast<uint32_t>(NumberOf(request, "source", 1, kHighest));
        }
        notification.interfaceNumber = InterfaceOf(request);
        WlanService::Instance().Notify(notification);
    } else if (action == "state") {
        const uint32_t state = StateOf(request), number = InterfaceOf(request);
        Pc::Instance().Change([&](PcDescription& pc) {
            if (number >= pc.wlanInterfaces.size()) {
                throw CommandError("the PC has no WLAN interface " + std::to_string(number));
            }
            pc.wlanInterfaces[number].state = state;
        });
    } else if (action != "read") {
        throw CommandError("unknown action \"" + action + "\"");
    }
    Json::Value json(Json::objectValue);
    json["interfaces"] = Interfaces();
    json["listeners"] = Json::UInt64{WlanService::Instance().Listeners()};
    return json;
}

Json::Value PowerActions(const Json::Value&) {
    Json::Value list(Json::arrayValue);
    for (const PowerAction& action : Pc::Instance().PowerActions()) {
        Json::Value json(Json::objectValue);
        json["action"] = action.action;
        json["call"] = action.call;
        list.append(json);
    }
    return list;
}

}  // namespace

std::vector<Command> HostCommands() {
    return {
        {"wlan",
         "action (notify with code, source, interface; state with state, interface; read): tells the "
         "listeners of the "
         "WLAN service and answers when their callbacks have returned, or sets an interface's state; answers "
         "with the "
         "interfaces and how many listen",
         Wlan},
        {"power-actions", "the shutdowns, reboots, hibernations and sleeps that were asked for",
         PowerActions},
    };
}

}  // namespace winhost
