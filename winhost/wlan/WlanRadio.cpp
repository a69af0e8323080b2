// What happens to the PC's radio: it joins, leaves and roams, with the notifications that Windows sends.
#include <stdexcept>

#include "winhost/core/WideText.h"
#include "winhost/wlan/WlanNetworks.h"
#include "winhost/wlan/WlanService.h"

namespace winhost {
namespace {

constexpr uint32_t kAcm = WLAN_NOTIFICATION_SOURCE_ACM, kMsm = WLAN_NOTIFICATION_SOURCE_MSM;

WlanInterface InterfaceAt(const PcDescription& pc, uint32_t number) {
    if (number >= pc.wlanInterfaces.size())
        throw std::runtime_error("the PC has no WLAN interface " + std::to_string(number));
    return pc.wlanInterfaces[number];
}

WlanNetwork NetworkNamed(const PcDescription& pc, const std::string& name) {
    for (const WlanNetwork& network : pc.wlanNetworks)
        if (network.name == name) return network;
    throw std::runtime_error("the PC has no network \"" + name + "\"");
}

WlanNetwork NetworkOf(uint32_t number) {
    const PcDescription pc = Pc::Instance().Description();
    const auto network = ConnectedNetwork(pc, InterfaceAt(pc, number));
    if (!network) throw std::runtime_error("the interface is not connected");
    return *network;
}

void SetInterface(uint32_t number, uint32_t state, const std::string& network) {
    Pc::Instance().Change([&](PcDescription& pc) {
        if (number >= pc.wlanInterfaces.size()) return;
        pc.wlanInterfaces[number].state = state;
        pc.wlanInterfaces[number].network = network;
    });
}

void ChangeNetwork(const std::string& name, const std::function<void(WlanNetwork&)>& change) {
    Pc::Instance().Change([&](PcDescription& pc) {
        for (WlanNetwork& network : pc.wlanNetworks)
            if (network.name == name) change(network);
    });
}

void Notify(uint32_t number, uint32_t source, uint32_t code, const std::string& data = "") {
    WlanService::Instance().Notify({code, source, number, data});
}

// The data of the notifications about a connection.
std::string ConnectionData(const WlanNetwork& network) {
    WLAN_CONNECTION_NOTIFICATION_DATA data{};
    data.wlanConnectionMode = wlan_connection_mode_profile;
    PutWide(data.strProfileName, network.name);
    data.dot11Ssid = Dot11SsidOf(network);
    data.dot11BssType = dot11_BSS_type_infrastructure;
    data.bSecurityEnabled = IsSecured(network);
    return {reinterpret_cast<const char*>(&data), sizeof data};
}

}  // namespace

void LeaveNetwork(uint32_t number) {
    const std::string data = ConnectionData(NetworkOf(number));
    Notify(number, kAcm, wlan_notification_acm_disconnecting, data);
    SetInterface(number, wlan_interface_state_disconnected, "");
    Notify(number, kMsm, wlan_notification_msm_disconnected);
    Notify(number, kAcm, wlan_notification_acm_disconnected, data);
}

void JoinNetwork(uint32_t number, const std::string& name) {
    const PcDescription pc = Pc::Instance().Description();
    const WlanInterface wlan = InterfaceAt(pc, number);
    const std::string data = ConnectionData(NetworkNamed(pc, name));
    if (ConnectedNetwork(pc, wlan)) LeaveNetwork(number);
    Notify(number, kAcm, wlan_notification_acm_connection_start, data);
    SetInterface(number, wlan_interface_state_associating, name);
    Notify(number, kMsm, wlan_notification_msm_associating);
    Notify(number, kMsm, wlan_notification_msm_associated);
    SetInterface(number, wlan_interface_state_authenticating, name);
    Notify(number, kMsm, wlan_notification_msm_authenticating);
    SetInterface(number, wlan_interface_state_connected, name);
    Notify(number, kMsm, wlan_notification_msm_connected);
    Notify(number, kAcm, wlan_notification_acm_connection_complete, data);
}

void Roam(uint32_t number, uint32_t channel, uint32_t frequency) {
    const WlanNetwork network = NetworkOf(number);
    Notify(number, kAcm, wlan_notification_acm_scan_complete);
    Notify(number, kMsm, wlan_notification_msm_roaming_start);
    ChangeNetwork(network.name, [&](WlanNetwork& changed) {
        changed.channel = channel;
        changed.frequency = frequency;
    });
    Notify(number, kMsm, wlan_notification_msm_roaming_end);
    Notify(number, kAcm, wlan_notification_acm_scan_list_refresh);
}

void ChangeKey(const std::string& name, const std::string& key) {
    NetworkNamed(Pc::Instance().Description(), name);
    ChangeNetwork(name, [&](WlanNetwork& changed) { changed.key = key; });
    Notify(0, kAcm, wlan_notification_acm_profile_change);
}

void SetState(uint32_t number, uint32_t state) {
    SetInterface(number, state, InterfaceAt(Pc::Instance().Description(), number).network);
}

}  // namespace winhost
