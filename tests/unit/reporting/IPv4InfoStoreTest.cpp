// The record of the primary address and of the last peer, and when the firmware gets it.
#include <gtest/gtest.h>

#include <thread>

#include "tests/unit/reporting/ReportingFixture.h"

namespace {

using namespace std::chrono_literals;

class AddressStore : public ReportingFixture {
  protected:
    void SetUp() override {
        ReportingFixture::SetUp();
        OpenMailbox();
    }

    IPv4InfoStore& Store() { return service->m_ipv4InfoStore; }

    // The look-up finds no address, now and after its pause.
    void FallBackToLoopback() {
        SetAdapters({Wired(1, "10.0.0.2", "")});
        std::thread update([&] { Store().UpdateNetworkAddress(false); });
        ASSERT_TRUE(Clock().AwaitSleeper(3s));
        Advance(3s);
        update.join();
    }
};

}  // namespace

TEST_F(AddressStore, TakesThePrimaryAddressWithThePortOfManagement) {
    SetAdapters({Wired(1, "192.168.7.3", "192.168.7.1")});
    Store().UpdateNetworkAddress(true);
    EXPECT_EQ(Store().GetCurrentIPv4(), inet_addr("192.168.7.3"));
    ExpectLogInOrder({"Size of structure 36", "Network Address: 0x307a8c0"});

    Store().SendIPCompleteInfo();
    const auto info = firmware.AwaitRequest("WriteIPCompleteInformation")->As<IPCompleteInfo>();
    EXPECT_EQ(info.IPv4Address, inet_addr("192.168.7.3"));
    EXPECT_EQ(info.Port, 623u);
    AwaitLog("Updating IPv4 Info 0x307a8c0");
}

TEST_F(AddressStore, TellsOfTheLoopbackAddressOnce) {
    ExpectErrors({"No valid IPv4 address found after 2 attempts."});
    for (int scan = 0; scan < 3; ++scan) {
        FallBackToLoopback();
        Store().SendIPCompleteInfo();
    }
    EXPECT_EQ(firmware.Count("WriteIPCompleteInformation"), 1u);
    AwaitLog("Skipping IP Complete Info update as IP address is 0x100007f", 2);

    SetAdapters({Wired(1, "192.168.7.3", "192.168.7.1")});
    Store().UpdateNetworkAddress(false);
    Store().SendIPCompleteInfo();
    FallBackToLoopback();
    Store().SendIPCompleteInfo();
    EXPECT_EQ(firmware.Count("WriteIPCompleteInformation"), 3u);
}

TEST_F(AddressStore, TellsOfTheSameRealAddressEachTime) {
    SetAdapters({Wired(1, "192.168.7.3", "192.168.7.1")});
    Store().UpdateNetworkAddress(false);
    Store().SendIPCompleteInfo();
    Store().SendIPCompleteInfo();
    EXPECT_EQ(firmware.Count("WriteIPCompleteInformation"), 2u);
}

TEST_F(AddressStore, KeepsThePeerUntilItIsCleared) {
    Store().SetPeer(664, inet_addr("10.1.2.3"), 0xABCD, 0xFFFF);
    IPCompleteInfo info = Store().TakeForSending();
    EXPECT_EQ(info.Port, 664u);
    EXPECT_EQ(info.PeerAddress, inet_addr("10.1.2.3"));
    EXPECT_EQ(info.PeerPort, 0xABCDu);
    EXPECT_EQ(info.PeerMarker, 0xFFFF);

    Store().ClearPeer();
    info = Store().TakeForSending();
    EXPECT_EQ(info.PeerAddress, 0u);
    EXPECT_EQ(info.PeerPort, 0u);
    EXPECT_EQ(info.PeerMarker, 0xFFFF);
    AwaitLog("Remote Port: 0");
}

TEST_F(AddressStore, GivesEachNewConnectionTheRecordWithItsOwnPeer) {
    const auto take = [&](uint16_t port) {
        int foreign = 0;
        for (uint16_t peer = 0; peer < 2000; ++peer) {
            const IPCompleteInfo info = Store().TakeForNewConnection(port, port, peer, 0xFFFF);
            foreign += info.Port != port || info.PeerAddress != port || info.PeerPort != peer;
        }
        return foreign;
    };
    int kvm = 0;
    std::thread other([&] { kvm = take(22); });
    EXPECT_EQ(take(664), 0);
    other.join();
    EXPECT_EQ(kvm, 0);
}

TEST_F(AddressStore, ForgetsThePeerWhenTheAddressIsRead) {
    SetAdapters({Wired(1, "192.168.7.3", "192.168.7.1")});
    Store().SetPeer(664, inet_addr("10.1.2.3"), 0xABCD, 0xFFFF);
    Store().UpdateNetworkAddress(false);
    const IPCompleteInfo info = Store().TakeForSending();
    EXPECT_EQ(info.Port, 623u);
    EXPECT_EQ(info.PeerAddress, 0u);
    EXPECT_EQ(info.PeerPort, 0u);
    EXPECT_EQ(info.PeerMarker, 0u);
}

TEST_F(AddressStore, ClearsTheWholeRecord) {
    SetAdapters({Wired(1, "192.168.7.3", "192.168.7.1")});
    Store().UpdateNetworkAddress(false);
    Store().SetPeer(664, inet_addr("10.1.2.3"), 0xABCD, 0xFFFF);
    Store().ClearAddresses();
    const IPCompleteInfo info = Store().TakeForSending();
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(&info), sizeof info), std::string(sizeof info, '\0'));
}

TEST_F(AddressStore, IsNotHeldWhileTheAddressIsLookedUp) {
    ExpectErrors({"No valid IPv4 address found after 2 attempts."});
    SetAdapters({Wired(1, "10.0.0.2", "")});
    std::thread update([&] { Store().UpdateNetworkAddress(false); });
    ASSERT_TRUE(Clock().AwaitSleeper(3s));
    Store().SetPeer(664, 1, 2, 0xFFFF);
    EXPECT_EQ(Store().GetCurrentIPv4(), 0u);
    Advance(3s);
    update.join();
}
