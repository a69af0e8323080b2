// The pipe to the agent: the display's configuration, and the start message.
#include <gtest/gtest.h>

#include "tests/unit/kvm/DisplayFixture.h"

namespace {

using namespace std::chrono_literals;

class DisplayAgent : public DisplayFixture {
  protected:
    static constexpr char kSentConfig[] = "LUX_KVM: IOCTL_Tarvix_SEND_DISPLAY_CONFIG sent status ";
    static constexpr char kReadFailed[] =
        "LUX_KVM: ReadFile ZEL_ServiceToKVMApp_pipe eNotifyDisplayConfig failed";

    void SetUp() override {
        DisplayFixture::SetUp();
        Begin();
        AwaitLog(kAwaitsAgent);
    }
    void ExpectNoConfig() {
        AwaitLog(kAwaitsStart);
        EXPECT_EQ(firmware.Count("WriteDisplayConfig"), 0u);
        EXPECT_EQ(LogCount(kSentConfig), 0u);
        EXPECT_TRUE(mgr.Inits().empty());
    }
};

}  // namespace

TEST_F(DisplayAgent, TellsTheFirmwareTheSizeAndBringsThePipelineUp) {
    AgentPeer agent;
    agent.SendConfig(1920, 1080, 2);
    AwaitLog(kBroughtUp);
    AwaitLog(kAwaitsStart);
    const auto request = firmware.AwaitRequest("WriteDisplayConfig");
    ASSERT_TRUE(request);
    EXPECT_EQ(request->As<DisplayConfigRecord>().width, 1920u);
    EXPECT_EQ(request->As<DisplayConfigRecord>().height, 1080u);
    ExpectLogInOrder({"LUX_KVM: CreateEvent m_KvmAppEvent handle ", kAwaitsAgent,
                      "LUX_KVM: Namedpipe connected successfully",
                      "WriteDisplayConfig: connecting to Driver. Input buffer size = 8",
                      "LUX_KVM: IOCTL_Tarvix_SEND_DISPLAY_CONFIG sent status 0x0, notify to display thread "
                      "width 1920 height 1080",
                      "DispEvtDisplayEnumConfig success", kAwaitsStart});
    ExpectLogInOrder({"LUX_KVM: mgr.Init started vidPnSourceId 2 width 1920 height 1080",
                      "LUX_KVM: mgr.Init succeeded on attempt 1", "LUX_KVM: mgr.Init Done", kBroughtUp});
    const auto inits = mgr.Inits();
    ASSERT_EQ(inits.size(), 1u);
    const uint32_t expected[] = {2, 1920, 1080, 0, 0, 5000000, 30};
    EXPECT_EQ(std::memcmp(&inits[0], expected, sizeof expected), 0);
}

TEST_F(DisplayAgent, GoesOnWhenTheFirmwareRefusesTheSize) {
    ExpectErrors({kRefused, kRefusedReturn});
    firmware.Refuse("WriteDisplayConfig", ERROR_GEN_FAILURE);
    AgentPeer agent;
    agent.SendConfig(800, 600, 0);
    AwaitLog(kBroughtUp);
    EXPECT_EQ(LogCount("sent status 0x1f, notify to display thread width 800 height 600"), 1u);
}

TEST_F(DisplayAgent, GetsTheStartMessageWhenAViewerIsThere) {
    AgentPeer agent;
    agent.SendConfig();
    AwaitLog(kAwaitsStart);
    manager->SetKvmAppEvent(AppEvtStartKVMOperation);
    EXPECT_EQ(agent.Read(), std::string("\2\0\0\0", 4));
    EXPECT_EQ(agent.Read(), "");
    AwaitLog("Written eNotifyDisplayConfig 4");
    // The waiting thread may log before the posting thread does, so their lines have no fixed order.
    EXPECT_TRUE(HasLine("INFO", "LUX_KVM: SetKvmAppEvent posted 1"));
    ExpectLogInOrder({"LUX_KVM: Received event 1", "Written eNotifyDisplayConfig 4"});
}

TEST_F(DisplayAgent, GetsTheStartMessageOfAViewerThatCameFirst) {
    manager->SetKvmAppEvent(AppEvtStartKVMOperation);
    AgentPeer agent;
    agent.SendConfig();
    EXPECT_EQ(agent.Read(), std::string("\2\0\0\0", 4));
}

TEST_F(DisplayAgent, AStartAfterTheThreadsEndIsOnlyLogged) {
    AgentPeer agent;
    agent.SendConfig();
    manager->SetKvmAppEvent(AppEvtStartKVMOperation);
    EXPECT_EQ(agent.Read(), std::string("\2\0\0\0", 4));
    EXPECT_EQ(agent.Read(), "");
    EXPECT_TRUE(Eventually([&] {
        manager->SetKvmAppEvent(AppEvtStartKVMOperation);
        return HasLine("INFO", "LUX_KVM: m_KvmAppEvent null, nothing to post 1");
    }));
}

TEST_F(DisplayAgent, AnotherMessageValueIsNoConfiguration) {
    AgentPeer agent;
    agent.SendConfig(1920, 1080, 2, 7);
    ExpectNoConfig();
    // The thread waits for its event all the same.
    manager->SetKvmAppEvent(AppEvtStartKVMOperation);
    EXPECT_EQ(agent.Read(), std::string("\2\0\0\0", 4));
}

TEST_F(DisplayAgent, AShortMessageIsNoConfiguration) {
    AgentPeer agent;
    agent.Send(std::string("\1\0\0", 3));
    ExpectNoConfig();
    EXPECT_TRUE(
        HasLine("WARN", "LUX_KVM: message of 3 byte(s) is too short for eNotifyDisplayConfig, ignored"));
}

TEST_F(DisplayAgent, ALongMessageIsCut) {
    std::string message(600, 'x');
    const ZEL_ServiceToKVMApp_pipe record{eNotifyDisplayConfig, 640, 480, 1};
    std::memcpy(message.data(), &record, sizeof record);
    // The service never reads the rest, so the agent's write lasts as long as the connection.
    AgentPeer agent;
    const auto sent = std::async(std::launch::async, [&] { agent.Send(message); });
    AwaitLog(kBroughtUp);
    EXPECT_EQ(mgr.Inits().at(0).width, 640u);
    EXPECT_EQ(LogCount(kReadFailed), 0u);
    AwaitLog(kAwaitsStart);
    StopApp();
}

TEST_F(DisplayAgent, AnAgentThatLeavesWithoutAMessageSendsNoConfiguration) {
    {
        AgentPeer agent;
        AwaitLog("LUX_KVM: Namedpipe connected successfully");
    }
    ExpectNoConfig();
    EXPECT_TRUE(HasLine("INFO", kReadFailed));
}

using DisplayPipe = DisplayFixture;

TEST_F(DisplayPipe, AConnectionThatFailsIsTriedFor2Seconds) {
    ExpectError("LUX_KVM:Error Connecting to the namedpipe. Error code: 232");
    Gate().FailNth("ConnectNamedPipe", 1, ERROR_NO_DATA, true);
    Begin();
    for (int pause = 0; pause < 200; ++pause)
        PassSleepOf(10ms);
    AwaitLog("LUX_KVM:Error Connecting to the namedpipe. Error code: 232");
    EXPECT_EQ(LogCount(kAwaitsAgent), 200u);
    EXPECT_EQ(Gate().Count("ConnectNamedPipe"), 200u);
    EXPECT_EQ(Gate().Count("DisconnectNamedPipe"), 1u);
}

TEST_F(DisplayPipe, AThreadWithoutAPipeEnds) {
    Gate().FailNth("CreateNamedPipeA", 1, ERROR_ACCESS_DENIED);
    Begin();
    EXPECT_TRUE(Eventually([&] {
        manager->SetKvmAppEvent(AppEvtStartKVMOperation);
        return HasLine("INFO", "LUX_KVM: m_KvmAppEvent null, nothing to post 1");
    }));
    EXPECT_EQ(LogCount(kAwaitsAgent), 0u);
}

TEST_F(DisplayPipe, AWaitThatFailsEndsTheThread) {
    ExpectError("Error in Wait for Single Object Error code: 6");
    Begin();
    AwaitLog(kAwaitsAgent);
    FailWaitBehind(kAwaitsStart);
    AgentPeer agent;
    agent.SendConfig(1, 1, 1, 7);
    AwaitLog("Error in Wait for Single Object Error code: 6");
    EXPECT_EQ(agent.Read(), "");
}

// A null access control list lets the agent of any user connect.
TEST_F(DisplayPipe, IsOpenToEveryUser) {
    Begin();
    AwaitLog(kAwaitsAgent);
    Pc().Change([](auto& description) { description.userName = "somebody"; });
    AgentPeer().SendConfig();
    AwaitLog(kBroughtUp);
}
