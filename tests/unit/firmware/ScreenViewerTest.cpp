// The display client's sessions: what a viewer sees, and how a session ends.
#include "tests/unit/firmware/ScreenFixture.h"

namespace mpm::test {
namespace {

class ScreenViewerTest : public ScreenFixture {};

TEST_F(ScreenViewerTest, ShowsTheHostsScreenToAViewer) {
    Begin();
    const Painting painting = Painting::Of(320, 200);
    SendFrame(EncodeOne(painting));
    RfbClient viewer = Viewer();
    ASSERT_TRUE(viewer.Connect());
    EXPECT_EQ(viewer.width, 320);
    viewer.Request(false);
    ASSERT_TRUE(viewer.TakeUpdate());
    EXPECT_GT(painting.Psnr(viewer.pixels), 35);
}

TEST_F(ScreenViewerTest, ShowsALaterViewerTheSameScreenAtOnce) {
    Begin();
    const Painting painting = Painting::Of(320, 200);
    SendFrame(EncodeOne(painting));
    RfbClient first = Viewer();
    ASSERT_TRUE(first.Connect());
    ConnectViewer();  // and the host sends no further frame
    RfbClient second = Viewer();
    ASSERT_TRUE(second.Connect());
    second.Request(false);
    ASSERT_TRUE(second.TakeUpdate());
    EXPECT_GT(painting.Psnr(second.pixels), 35);
    const Json::Value screen = m_firmware->Screen();
    EXPECT_EQ(screen["sessions"], 1);
    EXPECT_EQ(screen["viewer"]["connections"], 2);
    EXPECT_EQ(screen["viewer"]["connected"], true);
}

// Only the first frame of a session stands alone.
TEST_F(ScreenViewerTest, ShowsAViewerTheFrameThatCameBeforeIt) {
    m_firmware->Send(MPM_ZEL_CMD_GET_DISPAY_CONFIG);
    ExpectCommand(MPM_ZEL_CMD_GET_DISPAY_CONFIG);
    Configure();
    const Painting painting = Painting::Of(320, 200);
    SendFrame(EncodeOne(painting));
    AwaitDecoded(1);
    m_firmware->Send(MPM_ZEL_CMD_KVM_ENABLE_STATUS);
    ExpectCommand(MPM_ZEL_CMD_GET_DISPAY_CONFIG);
    ExpectCommand(MPM_ZEL_CMD_KVM_ENABLE_STATUS);
    ConnectViewer();  // the host has sent its configuration, and sends no further frame
    ExpectCommand(MPM_ZEL_CMD_GET_ENCODED_FRAMEBUFFER);
    RfbClient viewer = Viewer();
    ASSERT_TRUE(viewer.Connect());
    viewer.Request(false);
    ASSERT_TRUE(viewer.TakeUpdate());
    EXPECT_GT(painting.Psnr(viewer.pixels), 35);
}

TEST_F(ScreenViewerTest, ServesANextSessionOfAnotherSize) {
    Begin();
    SendFrame(EncodeOne(Painting::Of(320, 200)));
    ExpectCommand(MPM_ZEL_CMD_GET_ENCODED_FRAMEBUFFER);
    EndSession();
    AwaitSeen("the session has ended: 1 frames");
    Begin();
    const Painting painting = Painting::Of(200, 320);
    SendFrame(EncodeOne(painting));
    RfbClient viewer = Viewer();
    ASSERT_TRUE(viewer.Connect());
    EXPECT_EQ(viewer.width, 200);
    viewer.Request(false);
    ASSERT_TRUE(viewer.TakeUpdate());
    EXPECT_GT(painting.Psnr(viewer.pixels), 35);
    EXPECT_EQ(m_firmware->Screen()["sessions"], 2);
    EXPECT_EQ(CountSeen("VNC_SOC_CLOSE"), 0u);
}

TEST_F(ScreenViewerTest, StopsPullingWhenTheSessionEndsInMidFrame) {
    Begin();
    const std::vector<uint8_t> data(EncodedFrameChunk::kMaxData);
    SendChunk(2, uint32_t(data.size()), uint32_t(data.size()) + 1, data);
    ExpectCommand(MPM_ZEL_CMD_GET_ENCODED_FRAMEBUFFER);
    EndSession();
    ExpectSilence();
    EXPECT_EQ(m_firmware->Screen()["state"], "idle");
    Begin();
    SendFrame(EncodeOne(Painting::Of(64, 64)));
    AwaitDecoded(1);
    EXPECT_EQ(m_firmware->Screen()["faults"]["count"], 0);
}

TEST_F(ScreenViewerTest, EndsTheHostsSessionWhenTheViewerIsNone) {
    Begin();
    SendFrame(EncodeOne(Painting::Of(64, 64)));
    m_host->Ask(MailboxCode::WriteKVMPacket, "GARBAGE GARB\n");
    AwaitSeen("VNC_SOC_CLOSE");
}

TEST_F(ScreenViewerTest, NamesAStreamThatIsNoAv1InOneLine) {
    Begin();
    for (int i = 0; i < 20; ++i) {
        SendFrame(std::vector<uint8_t>(5000, uint8_t(0xFF - i)));
        ExpectCommand(MPM_ZEL_CMD_GET_ENCODED_FRAMEBUFFER);
    }
    AwaitScreen([](const Json::Value& screen) { return screen["decoded"]["failed"] == 20; });
    EXPECT_EQ(CountSeen("frame 1 of 5000 bytes: it is no AV1 that can be decoded"), 1u);
    EXPECT_EQ(m_firmware->Screen()["faults"]["count"], 1);
    SendFrame(EncodeOne(Painting::Of(64, 64)));
    AwaitDecoded(1);
}

TEST_F(ScreenViewerTest, RecordsChunksOnlyWhenAsked) {
    Begin();
    SendFrame(EncodeOne(Painting::Of(64, 64)));
    EXPECT_EQ(CountSeen("WriteEncodedBuffer"), 0u);
    EXPECT_EQ(CountSeen("GET_ENCODED_FRAMEBUFFER"), 0u);
    EXPECT_EQ(m_firmware->Count("WriteEncodedBuffer"), 1u);
    EXPECT_TRUE(m_firmware->Requests("WriteEncodedBuffer").empty());
    m_firmware->Change([](Settings& settings) { settings.Set("Screen.Trace", "true"); });
    ExpectCommand(MPM_ZEL_CMD_GET_ENCODED_FRAMEBUFFER);
    SendFrame(EncodeOne(Painting::Of(64, 64)));
    AwaitSeen("WriteEncodedBuffer");
    AwaitSeen("GET_ENCODED_FRAMEBUFFER");
}

TEST_F(ScreenViewerTest, SavesTheLastPicture) {
    const std::string path = testing::TempDir() + std::to_string(getpid()) + "screen.ppm";
    EXPECT_THROW(m_firmware->SavePicture(path), std::runtime_error);
    Begin();
    SendFrame(EncodeOne(Painting::Of(64, 48)));
    AwaitDecoded(1);
    m_firmware->SavePicture(path);
    EXPECT_EQ(std::filesystem::file_size(path), 13u + 64 * 48 * 3);
    std::filesystem::remove(path);
}

TEST_F(ScreenViewerTest, EndsWithTheHost) {
    Begin();
    m_host->Close();
    AwaitScreen([](const Json::Value& screen) { return screen["state"] == "idle"; });
}

TEST_F(ScreenViewerTest, IsTurnedOffBySettings) {
    Begin();
    m_firmware->Change([](Settings& settings) { settings.Set("Kvm", "none"); });
    EXPECT_TRUE(m_firmware->Screen().isNull());
    SendChunk(1, 3, 3, Bytes("abc"));
    ExpectSilence();
}

}  // namespace
}  // namespace mpm::test
