// Which of the host's addresses the firmware receives.
#include <gtest/gtest.h>

#include <thread>

#include "tests/unit/reporting/ReportingFixture.h"

namespace {

using namespace std::chrono_literals;
using PrimaryAddress = ReportingFixture;

// Runs a look-up that finds nothing at first: `meanwhile` happens during its pause.
IPCompleteInfo LookUpTwice(const std::function<void()>& meanwhile) {
    IPCompleteInfo info{};
    std::thread lookUp([&] { info = GetPrimaryAddress(623); });
    EXPECT_TRUE(winhost::Clock::Instance().AwaitSleeper(3s));
    meanwhile();
    lookUp.join();
    return info;
}

}  // namespace

TEST_F(PrimaryAddress, IsThatOfTheFirstAdapterWithAnAddressAndAGateway) {
    SetAdapters({Wired(1, "0.0.0.0", "0.0.0.0"), Wired(2, "10.0.0.2", ""),
                 Wired(3, "192.168.7.3", "192.168.7.1"), Wired(4, "172.16.0.4", "172.16.0.1")});
    SetDnsServers({"192.168.7.53", "192.168.7.54"});
    const IPCompleteInfo info = GetPrimaryAddress(623);
    EXPECT_EQ(info.IPv4Address, inet_addr("192.168.7.3"));
    EXPECT_EQ(info.Subnet, inet_addr("255.255.255.0"));
    EXPECT_EQ(info.Gateway, inet_addr("192.168.7.1"));
    EXPECT_EQ(info.DnsServer, inet_addr("192.168.7.53"));
    EXPECT_EQ(info.Port, 623u);
    EXPECT_EQ(info.PeerAddress, 0u);
    EXPECT_EQ(info.PeerPort, 0u);
    EXPECT_EQ(info.PeerMarker, 0u);
    ExpectLogInOrder({"Adapter Name: {adapter-3}", "Adapter Description: Wired adapter 3",
                      "IPv4 Address: 192.168.7.3", "Subnet Mask: 255.255.255.0", "Gateway: 192.168.7.1",
                      "DNS Server: 192.168.7.53"});
}

TEST_F(PrimaryAddress, IsLoopbackAfterThreeSecondsWhenNoAdapterHasAGateway) {
    SetAdapters({Wired(1, "10.0.0.2", ""), Wired(2, "10.0.0.3", "0.0.0.0")});
    ExpectErrors({"No valid IPv4 address found after 2 attempts."});
    const IPCompleteInfo info = LookUpTwice([&] { Advance(3s); });
    EXPECT_EQ(info.IPv4Address, 0x0100007Fu);
    EXPECT_EQ(info.Gateway, 0u);
    AwaitLog("No valid IPv4 address found after 2 attempts.");
}

TEST_F(PrimaryAddress, IsFoundByTheSecondPassWhenTheNetworkComesLate) {
    SetAdapters({Wired(1, "192.168.7.3", "")});
    const IPCompleteInfo info = LookUpTwice([&] {
        SetAdapters({Wired(1, "192.168.7.3", "192.168.7.1")});
        Advance(3s);
    });
    EXPECT_EQ(info.IPv4Address, inet_addr("192.168.7.3"));
}

TEST_F(PrimaryAddress, IsNotWaitedForWhenTheServiceStops) {
    OpenMailbox();
    SetAdapters({Wired(1, "10.0.0.2", "")});
    ExpectErrors({"No valid IPv4 address found after 2 attempts."});
    const IPCompleteInfo info = LookUpTwice([&] { service->ServiceCleanup(); });
    EXPECT_EQ(info.IPv4Address, 0x0100007Fu);
}

TEST_F(PrimaryAddress, StaysEmptyWhenTheAdaptersDoNotFitTheBuffer) {
    std::vector<winhost::Adapter> adapters;
    for (int i = 1; i <= 17; ++i) {
        adapters.push_back(Wired(i, "192.168.7." + std::to_string(i), "192.168.7.254"));
    }
    SetAdapters(adapters);
    ExpectErrors({"GetAdaptersInfo failed with error: 111"});
    EXPECT_EQ(GetPrimaryAddress(623).IPv4Address, 0u);
    AwaitLog("GetAdaptersInfo failed with error: 111");
    EXPECT_EQ(Gate().Count("GetAdaptersInfo"), 1u);
}

TEST_F(PrimaryAddress, IsFoundAmongSixteenAdaptersWhichJustFitTheBuffer) {
    std::vector<winhost::Adapter> adapters;
    for (int i = 1; i <= 16; ++i)
        adapters.push_back(Wired(i, "192.168.7." + std::to_string(i), i == 16 ? "192.168.7.254" : ""));
    SetAdapters(adapters);
    EXPECT_EQ(GetPrimaryAddress(623).IPv4Address, inet_addr("192.168.7.16"));
}

TEST_F(PrimaryAddress, StaysEmptyWhenTheAdaptersCannotBeRead) {
    SetAdapters({Wired(1, "192.168.7.3", "192.168.7.1")});
    ExpectErrors({"GetAdaptersInfo failed with error: 50"});
    Gate().FailNth("GetAdaptersInfo", 1, ERROR_NOT_SUPPORTED);
    EXPECT_EQ(GetPrimaryAddress(664).IPv4Address, 0u);
    AwaitLog("GetAdaptersInfo failed with error: 50");
}

TEST_F(PrimaryAddress, HasNoDnsServerWhenTheHostHasNone) {
    SetAdapters({Wired(1, "192.168.7.3", "192.168.7.1")});
    SetDnsServers({});
    ExpectErrors({"No DNS server found, using fallback 0.0.0.0"});
    EXPECT_EQ(GetPrimaryAddress(623).DnsServer, 0u);
    ExpectLogInOrder({"No DNS server found, using fallback 0.0.0.0", "DNS Server: 0.0.0.0"});
}

TEST_F(PrimaryAddress, HasNoDnsServerWhenTheHostDoesNotTell) {
    SetAdapters({Wired(1, "192.168.7.3", "192.168.7.1")});
    SetDnsServers({"192.168.7.53"});
    ExpectErrors({"No DNS server found, using fallback 0.0.0.0"});
    Gate().FailNth("GetNetworkParams", 1, ERROR_NO_DATA);
    EXPECT_EQ(GetPrimaryAddress(623).DnsServer, 0u);
}

TEST_F(PrimaryAddress, HasTheFirstOfManyDnsServers) {
    SetAdapters({Wired(1, "192.168.7.3", "192.168.7.1")});
    std::vector<std::string> servers;
    for (int i = 1; i <= 40; ++i)
        servers.push_back("192.168.8." + std::to_string(i));
    SetDnsServers(servers);
    EXPECT_EQ(GetPrimaryAddress(623).DnsServer, inet_addr("192.168.8.1"));
}
