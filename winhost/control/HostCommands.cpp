// The PC's radio.
#include "winhost/control/Commands.h"
#include "winhost/pc/Pc.h"
#include "winhost/wlan/WlanMemory.h"
#include "winhost/wlan/WlanNetworks.h"

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
    return Unsigned32Or(request, "interface", 0);
}

Json::Value Interfaces() {
    Json::Value list(Json::arrayValue);
    const PcDescription pc = Pc::Instance().Description();
    for (const WlanInterface& wlan : pc.wlanInterfaces) {
        Json::Value json(Json::objectValue);
        json["guid"] = wlan.guid;
        json["description"] = wlan.description;
        json["state"] = kStates[wlan.state % std::size(kStates)].name;
        if (const auto network = ConnectedNetwork(pc, wlan)) {
            json["network"] = network->name;
            json["channel"] = network->channel;
        }
        list.append(json);
    }
    return list;
}

Json::Value ReadWlan(const Json::Value&) {
    Json::Value json(Json::objectValue);
    json["interfaces"] = Interfaces();
    json["listeners"] = Json::UInt64{WlanService::Instance().Listeners()};
    json["memory"] = Json::UInt64{WlanMemoryInUse()};
    return json;
}

Json::Value NotifyWlan(const Json::Value& request) {
    WlanNotification notification;
    notification.code = Unsigned32Of(request, "code");
    notification.source = Unsigned32Or(request, "source", notification.source, 1);
    notification.interfaceNumber = InterfaceOf(request);
    WlanService::Instance().Notify(notification);
    return ReadWlan(request);
}

Json::Value RestartWlan(const Json::Value& request) {
    WlanService::Instance().Restart();
    return ReadWlan(request);
}

Json::Value SetWlanState(const Json::Value& request) {
    const uint32_t state = StateOf(request);
    SetState(InterfaceOf(request), state);
    return ReadWlan(request);
}

Json::Value JoinWlan(const Json::Value& request) {
    JoinNetwork(InterfaceOf(request), TextOf(request, "network"));
    return ReadWlan(request);
}

Json::Value LeaveWlan(const Json::Value& request) {
    LeaveNetwork(InterfaceOf(request));
    return ReadWlan(request);
}

Json::Value RoamWlan(const Json::Value& request) {
    Roam(InterfaceOf(request), Unsigned32Of(request, "channel"), Unsigned32Or(request, "frequency", 0));
    return ReadWlan(request);
}

Json::Value ChangeWlanKey(const Json::Value& request) {
    ChangeKey(TextOf(request, "network"), TextOf(request, "key"));
    return ReadWlan(request);
}

}  // namespace

std::vector<Command> HostCommands() {
    using Kind = Argument::Kind;
    const Argument interface { "interface", Kind::Number, "its place in the PC's list, from 0", false };
    return {
        {"wlan read", "the interfaces, how many listen, and the memory that is not freed", ReadWlan},
        {"wlan join",
         "leaves the network, joins another one and notifies the listeners of each step",
         JoinWlan,
         {{"network", Kind::Text, "the name of its profile, one of wlanNetworks"}, interface}},
        {"wlan leave", "leaves the network and notifies the listeners", LeaveWlan, {interface}},
        {"wlan roam",
         "goes to another channel of the same network and notifies the listeners",
         RoamWlan,
         {{"channel", Kind::Number, "1 to 14, 36 to 173, or of 6 GHz"},
          {"frequency", Kind::Number, "in kHz; follows from the channel when left out", false},
          interface}},
        {"wlan key",
         "changes the key in the profile of a network and notifies the listeners",
         ChangeWlanKey,
         {{"network", Kind::Text, "the name of its profile"}, {"key", Kind::Text, "the new key"}}},
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
