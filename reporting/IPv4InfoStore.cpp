#include "reporting/IPv4InfoStore.h"

#include <charconv>

#include "base/Log.h"
#include "reporting/NicInfo.h"
#include "state/ServiceState.h"

namespace {
constexpr uint32_t kReportedPort = 623;
constexpr uint32_t kLoopback = 0x0100007F;  // 127.0.0.1
constexpr uint16_t kNoPeer = 0xFFFF;

std::string HexText(uint32_t word) {
    char text[9];
    return {text, std::to_chars(text, text + sizeof text, word, 16).ptr};
}

template <class Value>
Value ValueOf(const std::map<uint32_t, Value>& values, uint32_t address) {
    const auto found = values.find(address);
    return found == values.end() ? Value{} : found->second;
}

}  // namespace

void IPv4InfoStore::UpdateNetworkAddress([[maybe_unused]] bool wireless) {
    const IPCompleteInfo info = GetPrimaryAddress(kReportedPort);
    std::lock_guard lock(m_mutex);
    m_ipCompleteInfo = info;
    LogInfo("Size of structure %d", sizeof m_ipCompleteInfo);
    LogInfo("Network Address: 0x%x", info.IPv4Address);
}

void IPv4InfoStore::UpdateIfEnabled(bool wireless) {
    if (g_pServiceState->m_bNetworkUpdatesEnabled) {
        UpdateNetworkAddress(wireless);
    } else {
        LogInfo("Skipping network updates");
    }
}

void IPv4InfoStore::SendIPCompleteInfo() {
    IPCompleteInfo info{};
    {
        std::lock_guard lock(m_mutex);
        if (m_ipCompleteInfo.IPv4Address == kLoopback && m_lastSentIPv4 == kLoopback) {
            LogWarn("Skipping IP Complete Info update as IP address is 0x%x", kLoopback);
            return;
        }
        info = TakeForSending();
    }
    g_pServiceState->m_mailBoxDriverInterface.WriteIPCompleteInformation(&info);
}

uint32_t IPv4InfoStore::GetCurrentIPv4() const {
    std::lock_guard lock(m_mutex);
    return m_ipCompleteInfo.IPv4Address;
}

void IPv4InfoStore::SetPeer(uint16_t localPort, uint32_t peerAddress, uint16_t peerPort, uint16_t marker) {
    std::lock_guard lock(m_mutex);
    m_ipCompleteInfo.Port = localPort;
    m_ipCompleteInfo.PeerAddress = peerAddress;
    m_ipCompleteInfo.PeerPort = peerPort;
    m_ipCompleteInfo.PeerMarker = marker;
}

void IPv4InfoStore::ClearPeer() {
    std::lock_guard lock(m_mutex);
    m_ipCompleteInfo.PeerAddress = 0;
    m_ipCompleteInfo.PeerPort = 0;
    m_ipCompleteInfo.PeerMarker = kNoPeer;
    LogInfo("Remote Port: %d", 0);
}

void IPv4InfoStore::ClearAddresses() {
    std::lock_guard lock(m_mutex);
    m_ipCompleteInfo = {};
}

IPCompleteInfo IPv4InfoStore::TakeForSending() {
    std::lock_guard lock(m_mutex);
    LogInfo("Updating IPv4 Info 0x%x", m_ipCompleteInfo.IPv4Address);
    m_lastSentIPv4 = m_ipCompleteInfo.IPv4Address;
    return m_ipCompleteInfo;
}

IPCompleteInfo IPv4InfoStore::TakeForNewConnection(uint16_t localPort, uint32_t peerAddress,
                                                   uint16_t peerPort, uint16_t marker) {
    std::lock_guard lock(m_mutex);
    SetPeer(localPort, peerAddress, peerPort, marker);
    return TakeForSending();
}

void IPv4InfoStore::RememberInterface(uint32_t address, uint32_t addressOrigin, uint32_t dhcpServer,
                                      const std::string& adapterType) {
    std::lock_guard lock(m_mutex);
    m_addressOriginByIP[address] = addressOrigin;
    m_dhcpServerByIP[address] = dhcpServer;
    m_adapterTypeByIP[address] = adapterType;
}

std::string IPv4InfoStore::IPv4AddressText() const {
    std::lock_guard lock(m_mutex);
    return HexText(m_ipCompleteInfo.IPv4Address);
}

std::string IPv4InfoStore::SubnetText() const {
    std::lock_guard lock(m_mutex);
    return HexText(m_ipCompleteInfo.Subnet);
}

std::string IPv4InfoStore::GatewayText() const {
    std::lock_guard lock(m_mutex);
    return HexText(m_ipCompleteInfo.Gateway);
}

std::string IPv4InfoStore::DnsServerText() const {
    std::lock_guard lock(m_mutex);
    return HexText(m_ipCompleteInfo.DnsServer);
}

std::string IPv4InfoStore::AddressOriginText(uint32_t address) const {
    std::lock_guard lock(m_mutex);
    const uint32_t origin = ValueOf(m_addressOriginByIP, address);
    if (origin == kAddressDHCP) return "Dynamic";
    return origin == kAddressStatic ? "Static" : "Unknown";
}

std::string IPv4InfoStore::DHCPServerText(uint32_t address) const {
    std::lock_guard lock(m_mutex);
    return HexText(ValueOf(m_dhcpServerByIP, address));
}

std::string IPv4InfoStore::AdapterTypeText(uint32_t address) const {
    std::lock_guard lock(m_mutex);
    return ValueOf(m_adapterTypeByIP, address);
}
