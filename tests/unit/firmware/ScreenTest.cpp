// The display client: asks for the configuration, pulls frames, and verifies them.
#include "tests/unit/firmware/ScreenFixture.h"

namespace mpm::test {
namespace {

class ScreenTest : public ScreenFixture {};

TEST_F(ScreenTest, AsksForTheConfigurationBeforeTheHostOpensItsPort) {
    EXPECT_EQ(m_firmware->Screen()["state"], "idle");
    m_firmware->Send(MPM_ZEL_CMD_KVM_ENABLE_STATUS);
    ExpectCommand(MPM_ZEL_CMD_GET_DISPAY_CONFIG);
    ExpectCommand(MPM_ZEL_CMD_KVM_ENABLE_STATUS);
    ExpectSilence();
}

TEST_F(ScreenTest, PullsWhenThereAreAConfigurationAndAViewer) {
    Configure(1920, 1080);
    ExpectSilence();
    EXPECT_EQ(m_firmware->Screen()["state"], "waits for a viewer");
    EXPECT_EQ(m_firmware->Screen()["width"], 1920);
    ConnectViewer();
    ExpectCommand(MPM_ZEL_CMD_GET_DISPAY_CONFIG);  // it was not asked for before
    ExpectCommand(MPM_ZEL_CMD_GET_ENCODED_FRAMEBUFFER);
    EXPECT_EQ(m_firmware->Screen()["state"], "pulls frames");
}

TEST_F(ScreenTest, WaitsForTheConfigurationOfAViewersSession) {
    m_firmware->Send(MPM_ZEL_CMD_KVM_ENABLE_STATUS);
    ConnectViewer();
    ExpectCommand(MPM_ZEL_CMD_GET_DISPAY_CONFIG);
    ExpectCommand(MPM_ZEL_CMD_KVM_ENABLE_STATUS);
    ExpectSilence();
    EXPECT_EQ(m_firmware->Screen()["state"], "waits for the display configuration");
    Configure();
    ExpectCommand(MPM_ZEL_CMD_GET_ENCODED_FRAMEBUFFER);
}

TEST_F(ScreenTest, LetsTheHostSettleBeforeTheFirstRequest) {
    Start({{"Screen.Settle", "300"}});
    ConnectViewer();
    ExpectCommand(MPM_ZEL_CMD_GET_DISPAY_CONFIG);
    const auto start = Clock::now();
    Configure();
    ExpectCommand(MPM_ZEL_CMD_GET_ENCODED_FRAMEBUFFER);
    EXPECT_GE(Clock::now() - start, milliseconds(300));
}

TEST_F(ScreenTest, AsksForOneChunkAtATime) {
    Begin();
    ExpectSilence();
    const std::vector<uint8_t> data(EncodedFrameChunk::kMaxData);
    SendChunk(2, uint32_t(data.size()), uint32_t(data.size()) + 1, data);
    ExpectCommand(MPM_ZEL_CMD_GET_ENCODED_FRAMEBUFFER);
    ExpectSilence();
}

TEST_F(ScreenTest, KeepsToTheFrameRateThatIsSet) {
    Start({{"Screen.FrameRate", "20"}});
    Begin();
    const std::vector<uint8_t> frame = EncodeOne(Painting::Of(64, 64));
    const auto start = Clock::now();
    for (int i = 0; i < 20; ++i) {
        SendFrame(frame);
        ExpectCommand(MPM_ZEL_CMD_GET_ENCODED_FRAMEBUFFER);
    }
    const std::chrono::duration<double> took = Clock::now() - start;
    EXPECT_GE(took.count(), 0.95);
    const Json::Value frames = m_firmware->Screen()["frames"];
    EXPECT_EQ(frames["count"], 20);
    EXPECT_LT(frames["perSecond"].asDouble(), 20.5);
}

TEST_F(ScreenTest, TakesANewFrameRateWithoutEndingTheSession) {
    Start({{"Screen.FrameRate", "1"}});
    Begin();
    m_firmware->Change([](Settings& settings) { settings.Set("Screen.FrameRate", "200"); });
    const std::vector<uint8_t> frame = EncodeOne(Painting::Of(64, 64));
    SendFrame(frame);
    ExpectCommand(MPM_ZEL_CMD_GET_ENCODED_FRAMEBUFFER);  // still a second after the first
    const auto start = Clock::now();
    SendFrame(frame);
    ExpectCommand(MPM_ZEL_CMD_GET_ENCODED_FRAMEBUFFER);
    EXPECT_LT(Clock::now() - start, milliseconds(900));
    EXPECT_EQ(m_firmware->Screen()["viewer"]["connected"], true);
}

TEST_F(ScreenTest, MeasuresFrames) {
    Begin();
    SendFrame(std::vector<uint8_t>(1000, 0xFF));
    ExpectCommand(MPM_ZEL_CMD_GET_ENCODED_FRAMEBUFFER);
    std::this_thread::sleep_for(milliseconds(50));
    SendFrame(std::vector<uint8_t>(600'000, 0xFF));
    const Json::Value frames = m_firmware->Screen()["frames"];
    EXPECT_EQ(frames["count"], 2);
    EXPECT_EQ(frames["bytes"], 601'000);
    EXPECT_EQ(frames["chunks"], 3);
    EXPECT_EQ(frames["lastBytes"], 600'000);
    EXPECT_EQ(frames["largestBytes"], 600'000);
    EXPECT_EQ(frames["averageBytes"], 300'500);
    EXPECT_GE(frames["milliseconds"]["p95"].asDouble(), 50);
    EXPECT_LT(frames["milliseconds"]["median"].asDouble(), frames["milliseconds"]["p95"].asDouble());
    m_firmware->ResetScreenMeter();
    EXPECT_EQ(m_firmware->Screen()["frames"]["count"], 0);
}

TEST_F(ScreenTest, TakesAFrameOfTwentyMegabytes) {
    Begin();
    SendFrame(std::vector<uint8_t>(20'000'000, 0xFF));
    EXPECT_EQ(m_firmware->Screen()["frames"]["lastBytes"], 20'000'000);
    EXPECT_EQ(m_firmware->Screen()["frames"]["chunks"], 39);
}

TEST_F(ScreenTest, PassesOverFramesAboveTheLimitInOneLine) {
    Start({{"Screen.MaxFrame", "1000000"}});
    Begin();
    SendFrame(std::vector<uint8_t>(2'000'000, 0xFF));
    ExpectCommand(MPM_ZEL_CMD_GET_ENCODED_FRAMEBUFFER);
    EXPECT_EQ(CountSeen("a frame of 2000000 bytes is larger than the limit of 1000000"), 1u);
    EXPECT_EQ(m_firmware->Screen()["frames"]["count"], 0);
    SendFrame(EncodeOne(Painting::Of(64, 64)));
    AwaitDecoded(1);
}

TEST_F(ScreenTest, ReportsAFailedCaptureInOneLineAndAsksOnAtOnce) {
    Start({{"Screen.FrameRate", "1"}});
    Begin();
    for (uint32_t left = FrameAssembler::kEmptyChunks; left > 1; --left) {
        SendChunk(left, 0, 0, {});
        ExpectCommand(MPM_ZEL_CMD_GET_ENCODED_FRAMEBUFFER);
    }
    SendChunk(1, 0, 0, {});
    ExpectCommand(MPM_ZEL_CMD_GET_ENCODED_FRAMEBUFFER);
    EXPECT_EQ(CountSeen("the capture failed"), 1u);
    EXPECT_EQ(m_firmware->Screen()["faults"]["captureFailures"], 1);
    EXPECT_LT(Seen().size(), 20u) << "lines for single chunks";
    SendFrame(EncodeOne(Painting::Of(64, 64)));
    AwaitDecoded(1);
}

TEST_F(ScreenTest, PausesLongerAfterEachFailedCaptureInARow) {
    Begin();
    for (const milliseconds pause : {milliseconds(1000), milliseconds(2000), milliseconds(1000)}) {
        for (uint32_t left = FrameAssembler::kEmptyChunks; left > 1; --left) {
            SendChunk(left, 0, 0, {});
            ExpectCommand(MPM_ZEL_CMD_GET_ENCODED_FRAMEBUFFER);
        }
        SendChunk(1, 0, 0, {});
        const auto start = Clock::now();
        ExpectCommand(MPM_ZEL_CMD_GET_ENCODED_FRAMEBUFFER);
        EXPECT_GE(Clock::now() - start, pause - milliseconds(50));
        if (pause == milliseconds(2000)) {
            SendFrame(EncodeOne(Painting::Of(64, 64)));
            ExpectCommand(MPM_ZEL_CMD_GET_ENCODED_FRAMEBUFFER);
        }
    }
}

TEST_F(ScreenTest, NamesAWrongChunkAndGoesOn) {
    Begin();
    SendChunk(7, 3, 3, Bytes("abc"));
    ExpectCommand(MPM_ZEL_CMD_GET_ENCODED_FRAMEBUFFER);
    EXPECT_EQ(CountSeen("the first chunk of a frame of 3 bytes has RequiredChunk 7 and not 1"), 1u);
    SendFrame(EncodeOne(Painting::Of(64, 64)));
    const Json::Value screen = AwaitDecoded(1);
    EXPECT_EQ(screen["faults"]["count"], 1);
    EXPECT_NE(screen["faults"]["last"].asString().find("RequiredChunk 7"), std::string::npos);
}

TEST_F(ScreenTest, NamesAChunkThatWasNotAskedFor) {
    SendChunk(1, 3, 3, Bytes("abc"));
    AwaitSeen("a chunk that was not asked for");
}

TEST_F(ScreenTest, RepeatsARequestThatIsNotAnswered) {
    Start({{"Screen.Patience", "100"}});
    Begin();
    ExpectCommand(MPM_ZEL_CMD_GET_ENCODED_FRAMEBUFFER);
    AwaitSeen("no chunk for 100 ms; the request is repeated");
    SendFrame(EncodeOne(Painting::Of(64, 64)));
    EXPECT_GE(m_firmware->Screen()["faults"]["repeatedRequests"].asInt(), 1);
    AwaitDecoded(1);
}

TEST(ScreenSettingsTest, NeedALevelThatKnowsTheScreen) {
    Settings settings;
    settings.Set("uVORKVersion", "49");
    settings.Check();
    settings.Set("Kvm", "screen");
    EXPECT_THROW(settings.Check(), std::invalid_argument);
    EXPECT_THROW(Firmware firmware(settings), std::invalid_argument);
    settings.Set("uVORKVersion", "50");
    settings.Check();
    Firmware firmware(settings);
    EXPECT_THROW(firmware.Change([](Settings& change) { change.Set("uVORKVersion", "45"); }),
                 std::invalid_argument);
    EXPECT_EQ(firmware.CurrentSettings().uVORKVersion, 50u);
}

TEST(ScreenSettingsTest, AreBounded) {
    Settings settings;
    for (const auto& [key, value] :
         {std::pair("Screen.FrameRate", "0"), std::pair("Screen.FrameRate", "241"),
          std::pair("Screen.MaxFrame", "0"), std::pair("Screen.MaxFrame", "1073741825"),
          std::pair("Screen.Settle", "60001"), std::pair("Screen.Patience", "-1"),
          std::pair("Dash", "screen"), std::pair("Kvm", "identify")})
        EXPECT_THROW(settings.Set(key, value), std::invalid_argument) << key;
    settings.Set("Screen.FrameRate", "60");
    EXPECT_EQ(settings.ToJson()["Screen"]["FrameRate"].asInt(), 60);
    settings.Set("Kvm", "screen");
    EXPECT_EQ(settings.ToJson()["Kvm"], "screen");
}

}  // namespace
}  // namespace mpm::test
