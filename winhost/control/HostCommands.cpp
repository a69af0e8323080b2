// The PC's radio.
#include "winhost/control/Commands.h"
#include "winhost/pc/Pc.h"
#include "winhost/wlan/WlanService.h"

namespace winhost {
namespace {

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
    return request.isMember("interface") ? Unsigned32Of(request, "interface") : 0;
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

Json::Value ReadWlan(const Json::Value&) {
    Json::Value json(Json::objectValue);
    json["interfaces"] = Interfaces();
    json["listeners"] = Json::UInt64{WlanService::Instance().Listeners()};
    return json;
}

Json::Value NotifyWlan(const Json::Value& request) {
    WlanNotification notification;
    notification.code = Unsigned32Of(request, "code");
    if (request.isMember("source")) notification.source = Unsigned32Of(request, "source", 1);
    notification.interfaceNumber = InterfaceOf(request);
    WlanService::Instance().Notify(notification);
    return ReadWlan(request);
}

Json::Value RestartWlan(const Json::Value& request) {
    WlanService::Instance().Restart();
    return ReadWlan(request);
}

Json::Value SetWlanState(const Json::Value& request) {
    const uint32_t state = StateOf(request), number = InterfaceOf(request);
    Pc::Instance().Change([&](PcDescription& pc) {
        if (number >= pc.wlanInterfaces.size()) {
            throw CommandError("the PC has no WLAN interface " + std::to_string(number));
        }
        pc.wlanInterfaces[number].state = state;
    });
    return ReadWlan(request);
}

}  // namespace

std::vector<Command> HostCommands() {
    using Kind = Argument::Kind;
    const Argument interface { "interface", Kind::Number, "its place in the PC's list, from 0", false };
    return {
        {"wlan read", "the interfaces, and how many listen", ReadWlan},
        {"wlan notify",
         "notifies the listeners and answers when their callbacks have returned",
         NotifyWlan,
         {{"code", Kind::Number, "10 is connected, 21 disconnected"},
          {"source", Kind::Number, "8, the auto configuration, when left out", false},
          interface}},
        {"wlan restart", "restarts the WLAN service: all handles of its clients are invalid then",
         RestartWlan},
        {"wlan state",
         "sets an interface's state without a notification",
         SetWlanState,
         {{"state", Kind::NumberOrName, "0 to 7, or a name: connected, disconnected, associating, ..."},
          interface}},
    };
}

}  // namespace winhost
