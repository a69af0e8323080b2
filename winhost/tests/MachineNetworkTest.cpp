// A PC whose description names no adapters reports this machine's.
#include <iphlpapi.h>

#include <optional>
#include <sstream>

#include "winhost/net/Machine.h"
#include "winhost/tests/IpTables.h"
#include "winhost/tests/OwnNetwork.h"

namespace {

// "eth0" is one end of a virtual cable, whose other end is "far0".
void AddCable(const std::string& name, const std::string& far, const std::string& address = "") {
    Ip("link add " + name + " type veth peer name " + far);
    Ip("link set dev " + far + " up");
    Ip("link set dev " + name + " up");
    if (!address.empty()) Ip("address add " + address + " dev " + name);
}

std::optional<MIB_IFROW> RowOf(const std::string& description) {
    for (const MIB_IFROW& row : InterfaceRows())
        if (DescriptionOf(row) == description) return row;
    return std::nullopt;
}

std::vector<MIB_IPADDRROW> AddressesOf(DWORD index) {
    auto rows = AddressRows();
    std::erase_if(rows, [&](const MIB_IPADDRROW& row) { return row.dwIndex != index; });
    return rows;
}

std::optional<IP_ADAPTER_INFO> AdapterOf(const std::string& name) {
    ULONG size = 0;
    if (GetAdaptersInfo(nullptr, &size) != ERROR_BUFFER_OVERFLOW) return std::nullopt;
    std::vector<std::byte> buffer(size);
    auto* info = reinterpret_cast<IP_ADAPTER_INFO*>(buffer.data());
    EXPECT_EQ(ERROR_SUCCESS, GetAdaptersInfo(info, &size));
    while (info && info->AdapterName != name)
        info = info->Next;
    return info ? std::optional(*info) : std::nullopt;
}

std::string GatewayOf(const std::string& name) {
    return AdapterOf(name)->GatewayList.IpAddress.String;
}

bool IsConnected() {
    const auto [connected, flags] = GetConnectedState();
    EXPECT_EQ(connected ? 0x12u : 0x10u, flags);
    return connected;
}

class MachineNetworkDeathTest : public PcFixture {
  protected:
    void SetUp() override {
        if (const std::string reason = WhyNoOwnNetwork(); !reason.empty()) GTEST_SKIP() << reason;
    }
};

#define EXPECT_IN_OWN_NETWORK(body) EXPECT_EXIT(RunInOwnNetwork(body), testing::ExitedWithCode(0), "")

TEST_F(MachineNetworkDeathTest, AnEmptyNetworkHasTheLoopbackAlone) {
    EXPECT_IN_OWN_NETWORK([] {
        ASSERT_EQ(1u, InterfaceRows().size());
        EXPECT_EQ(DWORD{IF_TYPE_SOFTWARE_LOOPBACK}, RowOf(winhost::kLoopbackDescription)->dwType);
        EXPECT_TRUE(AddressRows().empty());
        ULONG size = 0;
        EXPECT_EQ(ERROR_NO_DATA, GetAdaptersInfo(nullptr, &size));
        EXPECT_FALSE(IsConnected());
        Ip("link set dev lo up");
        ASSERT_EQ(1u, AddressRows().size());
        EXPECT_EQ("127.0.0.1", Dotted(AddressRows()[0].dwAddr));
    });
}

TEST_F(MachineNetworkDeathTest, AnInterfaceIsToldWithItsAddressesAndGateway) {
    EXPECT_IN_OWN_NETWORK([] {
        AddCable("eth0", "far0");
        Ip("link set dev eth0 address 02:00:5e:10:00:0f mtu 1400");
        Ip("address add 10.1.2.3/20 dev eth0");
        Ip("address add 172.16.0.9/16 dev eth0");
        Ip("route add default via 10.1.2.1");
        const auto row = RowOf("eth0");
        ASSERT_TRUE(row);
        EXPECT_EQ(DWORD{IF_TYPE_ETHERNET_CSMACD}, row->dwType);
        EXPECT_EQ(1400u, row->dwMtu);
        EXPECT_EQ(DWORD{IF_OPER_STATUS_OPERATIONAL}, row->dwOperStatus);
        EXPECT_EQ(0xFFFFFFFFu, row->dwSpeed) << "virtual cables carry 10 Gbit/s";
        EXPECT_EQ(6u, row->dwPhysAddrLen);
        EXPECT_EQ(0x0F, row->bPhysAddr[5]);
        const auto addresses = AddressesOf(row->dwIndex);
        ASSERT_EQ(2u, addresses.size());
        EXPECT_EQ("10.1.2.3", Dotted(addresses[0].dwAddr));
        EXPECT_EQ("255.255.240.0", Dotted(addresses[0].dwMask));
        EXPECT_EQ(MIB_IPADDR_PRIMARY, addresses[0].wType);
        EXPECT_EQ("172.16.0.9", Dotted(addresses[1].dwAddr));
        EXPECT_EQ(0, addresses[1].wType);
        const auto adapter = AdapterOf("eth0");
        ASSERT_TRUE(adapter);
        EXPECT_STREQ("10.1.2.3", adapter->IpAddressList.IpAddress.String);
        EXPECT_STREQ("10.1.2.1", adapter->GatewayList.IpAddress.String);
        EXPECT_EQ(0u, adapter->DhcpEnabled);
        EXPECT_STREQ("", adapter->DhcpServer.IpAddress.String);
        EXPECT_TRUE(IsConnected());
    });
}

TEST_F(MachineNetworkDeathTest, AnAddressWithALifetimeCountsAsDhcp) {
    EXPECT_IN_OWN_NETWORK([] {
        AddCable("eth0", "far0");
        Ip("address add 10.1.2.3/24 dev eth0 valid_lft 3600 preferred_lft 3600");
        const auto addresses = AddressesOf(RowOf("eth0")->dwIndex);
        ASSERT_EQ(1u, addresses.size());
        EXPECT_EQ(MIB_IPADDR_PRIMARY | MIB_IPADDR_DYNAMIC, addresses[0].wType);
        EXPECT_EQ(1u, AdapterOf("eth0")->DhcpEnabled);
        EXPECT_STREQ("255.255.255.255", AdapterOf("eth0")->DhcpServer.IpAddress.String);
    });
}

TEST_F(MachineNetworkDeathTest, APulledCableIsSeenByTheNextCall) {
    EXPECT_IN_OWN_NETWORK([] {
        AddCable("eth0", "far0", "10.1.2.3/24");
        Ip("route add default via 10.1.2.1");
        MIB_IFROW row = *RowOf("eth0");
        Ip("link set dev far0 down");
        ASSERT_EQ(NO_ERROR, GetIfEntry(&row));
        EXPECT_EQ(DWORD{IF_OPER_STATUS_DISCONNECTED}, row.dwOperStatus);
        EXPECT_EQ(DWORD{MIB_IF_ADMIN_STATUS_UP}, row.dwAdminStatus);
        EXPECT_EQ(MIB_IPADDR_PRIMARY | MIB_IPADDR_DISCONNECTED, AddressesOf(row.dwIndex)[0].wType);
        EXPECT_FALSE(IsConnected()) << "its route leads nowhere now";
        Ip("link set dev far0 up");
        // Linux reports the carrier a moment later.
        EXPECT_TRUE(Eventually(
            [&] { return GetIfEntry(&row) == NO_ERROR && row.dwOperStatus == IF_OPER_STATUS_OPERATIONAL; }));
        Ip("link set dev eth0 down");
        ASSERT_EQ(NO_ERROR, GetIfEntry(&row));
        EXPECT_EQ(DWORD{IF_OPER_STATUS_NON_OPERATIONAL}, row.dwOperStatus);
        EXPECT_EQ(DWORD{MIB_IF_ADMIN_STATUS_DOWN}, row.dwAdminStatus);
        Ip("link delete eth0");
        EXPECT_EQ(ERROR_INVALID_DATA, GetIfEntry(&row));
        EXPECT_FALSE(RowOf("eth0"));
    });
}

TEST_F(MachineNetworkDeathTest, EachInterfaceHasTheGatewayOfItsBestDefaultRoute) {
    EXPECT_IN_OWN_NETWORK([] {
        AddCable("eth0", "far0", "10.0.0.2/24");
        AddCable("eth1", "far1", "10.0.1.2/24");
        AddCable("eth2", "far2", "10.0.2.2/24");
        Ip("route add default via 10.0.0.9 dev eth0 metric 500");
        Ip("route add default via 10.0.0.1 dev eth0 metric 100");
        Ip("route add default via 10.0.1.1 dev eth1 metric 200");
        Ip("route add 10.9.0.0/16 via 10.0.2.1 dev eth2");
        EXPECT_EQ("10.0.0.1", GatewayOf("eth0"));
        EXPECT_EQ("10.0.1.1", GatewayOf("eth1"));
        EXPECT_EQ("0.0.0.0", GatewayOf("eth2"));
    });
}

TEST_F(MachineNetworkDeathTest, AnAliasIsTheDescription) {
    EXPECT_IN_OWN_NETWORK([] {
        AddCable("eth0", "far0");
        Ip("link set dev eth0 alias 'Wired Adapter #2'");
        EXPECT_STREQ("Wired Adapter #2", AdapterOf("eth0")->Description);
        EXPECT_EQ(L"\\DEVICE\\TCPIP_eth0", std::wstring(RowOf("Wired Adapter #2")->wszName));
    });
}

TEST_F(MachineNetworkDeathTest, ManyInterfacesAreAllTold) {
    EXPECT_IN_OWN_NETWORK([] {
        for (int i = 0; i < 40; ++i) {
            Ip("link add eth" + std::to_string(i) + " type veth peer name far" + std::to_string(i));
        }
        EXPECT_EQ(81u, InterfaceRows().size());
    });
}

TEST(MachineNetwork, NameServersComeFromTheResolversFile) {
    std::istringstream file(
        "# made by hand\nsearch lab.example\nnameserver 192.168.1.1\n nameserver\t9.9.9.9 # second\n"
        "nameserver fe80::1\nnameserverx 1.1.1.1\noptions edns0\n");
    EXPECT_EQ((std::vector<std::string>{"192.168.1.1", "9.9.9.9"}), winhost::NameServersIn(file));
}

}  // namespace
