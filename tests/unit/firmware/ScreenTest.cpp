// The display client: asks for the configuration, pulls frames, verifies them, and shows them to a viewer.
#include <gtest/gtest.h>
#include <json/json.h>

#include <cstring>
#include <filesystem>
#include <thread>

#include "firmware/screen/FrameAssembler.h"
#include "mailbox/MailboxRecords.h"
#include "tests/unit/firmware/Av1Pictures.h"
#include "tests/unit/firmware/LinkHost.h"
#include "tests/unit/firmware/RfbClient.h"

namespace mpm::test {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

Settings ScreenSettingsWith(std::initializer_list<std::pair<const char*, const char*>> more) {
    Settings settings;
    settings.Set("Kvm", "screen");
    settings.Set("Screen.Settle", "0");
    settings.Set("Screen.FrameRate", "240");
    for (const auto& [key, value] : more)
        settings.Set(key, value);
    return settings;
}

class ScreenTest : public testing::Test {
  protected:
    ScreenTest() { Start({}); }

    // The firmware, with other settings.
    void Start(std::initializer_list<std::pair<const char*, const char*>> settings) {
        m_host.reset();
        m_firmware.emplace(ScreenSettingsWith(settings));
        m_firmware->Observe([this](const Event& event) {
            if (event.kind == Event::Kind::Note && event.name != "screen") return;
            std::lock_guard lock(m_mutex);
            m_seen.push_back(event.kind == Event::Kind::Note ? event.text : event.name);
        });
        m_host.emplace(m_firmware->Address());
        m_host->Listen();
        EXPECT_TRUE(m_firmware->AwaitHostListening());
    }

    std::vector<std::string> Seen() {
        std::lock_guard lock(m_mutex);
        return m_seen;
    }
    size_t CountSeen(const std::string& part) {
        const auto seen = Seen();
        return size_t(std::count_if(seen.begin(), seen.end(), [&](const std::string& each) {
            return each.find(part) != std::string::npos;
        }));
    }
    void AwaitSeen(const std::string& part, size_t count = 1) {
        for (const auto end = Clock::now() + kPatience; CountSeen(part) < count && Clock::now() < end;)
            std::this_thread::sleep_for(milliseconds(5));
        EXPECT_GE(CountSeen(part), count) << part;
    }

    // The next message that is not for the viewer.
    void ExpectCommand(MpmCommand command) {
        auto message = m_host->AwaitMessage();
        while (message && (*message)[message->size() - 2] == MPM_ZEL_CMD_KVM_DATA)
            message = m_host->AwaitMessage();
        EXPECT_EQ(PayloadOf(message, command), "");
    }
    void ExpectSilence(milliseconds patience = kSoon) { EXPECT_FALSE(m_host->AwaitMessage(patience)); }

    void Configure(uint32_t width = 64, uint32_t height = 64) {
        const DisplayConfigRecord config{width, height};
        EXPECT_EQ(m_host->Ask(MailboxCode::WriteDisplayConfig, Bytes::Of(config)).error, 0u);
    }
    void ConnectViewer() {
        IPCompleteInfo viewer{};
        viewer.Port = 22;
        viewer.PeerPort = 1;
        viewer.PeerMarker = 0xFFFF;
        EXPECT_EQ(m_host->Ask(MailboxCode::WriteIPCompleteInformation, Bytes::Of(viewer)).error, 0u);
    }
    // A session up to its first request for a chunk.
    void Begin() {
        m_firmware->Send(MPM_ZEL_CMD_KVM_ENABLE_STATUS);
        ExpectCommand(MPM_ZEL_CMD_GET_DISPAY_CONFIG);
        ExpectCommand(MPM_ZEL_CMD_KVM_ENABLE_STATUS);
        Configure();
        ConnectViewer();
        ExpectCommand(MPM_ZEL_CMD_GET_ENCODED_FRAMEBUFFER);
    }
    void EndSession() {
        EXPECT_EQ(m_host->Ask(MailboxCode::WriteCloseSocketcmd, Bytes::Of(CloseSocketRecord{22})).error, 0u);
    }

    void SendChunk(uint32_t required, uint32_t chunkSize, uint32_t frameSize, std::span<const uint8_t> data) {
        std::vector<uint8_t> record(sizeof(EncodedFrameChunk));
        const EncodedFrameChunk head{required, chunkSize, frameSize};
        std::memcpy(record.data(), &head, sizeof head);
        record.insert(record.end(), data.begin(), data.end());
        EXPECT_EQ(m_host->Ask(MailboxCode::WriteEncodedBuffer, record).error, 0u);
    }
    // The host's answers to the requests for one frame, of which the first has come.
    void SendFrame(std::span<const uint8_t> frame) {
        const auto size = uint32_t(frame.size());
        for (uint32_t left = FrameAssembler::ChunksOf(size); left > 0; --left) {
            const auto chunk = frame.first(std::min(frame.size(), EncodedFrameChunk::kMaxData));
            frame = frame.subspan(chunk.size());
            SendChunk(left, uint32_t(chunk.size()), size, chunk);
            if (left > 1) ExpectCommand(MPM_ZEL_CMD_GET_ENCODED_FRAMEBUFFER);
        }
    }

    Json::Value AwaitScreen(const std::function<bool(const Json::Value&)>& is) {
        for (const auto end = Clock::now() + kPatience; Clock::now() < end;) {
            const Json::Value screen = m_firmware->Screen();
            if (is(screen)) return screen;
            std::this_thread::sleep_for(milliseconds(5));
        }
        ADD_FAILURE() << m_firmware->Screen();
        return {};
    }
    Json::Value AwaitDecoded(int count) {
        return AwaitScreen([&](const Json::Value& screen) { return screen["decoded"]["count"] == count; });
    }

    // What the firmware sends to the viewer, while the host answers no request for a chunk.
    std::vector<uint8_t> ReceiveOfViewer() {
        for (;;) {
            const auto message = m_host->AwaitMessage();
            if (!message) return {};
            const uint8_t command = (*message)[message->size() - 2];
            if (command == MPM_ZEL_CMD_GET_ENCODED_FRAMEBUFFER) continue;
            EXPECT_EQ(command, MPM_ZEL_CMD_KVM_DATA);
            return {message->begin(), message->end() - kMailboxTrailerSize};
        }
    }
    RfbClient Viewer() {
        return {[this](std::span<const uint8_t> bytes) {
                    EXPECT_EQ(m_host->Ask(MailboxCode::WriteKVMPacket, bytes).error, 0u);
                },
                [this] { return ReceiveOfViewer(); }};
    }

    std::mutex m_mutex;
    std::vector<std::string> m_seen;
    std::optional<ListeningFirmware> m_firmware;
    std::optional<LinkHost> m_host;
};

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

TEST_F(ScreenTest, ShowsTheHostsScreenToAViewer) {
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

TEST_F(ScreenTest, ShowsALaterViewerTheSameScreenAtOnce) {
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

TEST_F(ScreenTest, ServesANextSessionOfAnotherSize) {
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

TEST_F(ScreenTest, StopsPullingWhenTheSessionEndsInMidFrame) {
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

TEST_F(ScreenTest, EndsTheHostsSessionWhenTheViewerIsNone) {
    Begin();
    SendFrame(EncodeOne(Painting::Of(64, 64)));
    m_host->Ask(MailboxCode::WriteKVMPacket, "GARBAGE GARB\n");
    AwaitSeen("VNC_SOC_CLOSE");
}

TEST_F(ScreenTest, NamesAStreamThatIsNoAv1InOneLine) {
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

TEST_F(ScreenTest, RecordsChunksOnlyWhenAsked) {
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

TEST_F(ScreenTest, SavesTheLastPicture) {
    const std::string path = testing::TempDir() + std::to_string(getpid()) + "screen.ppm";
    EXPECT_THROW(m_firmware->SavePicture(path), std::runtime_error);
    Begin();
    SendFrame(EncodeOne(Painting::Of(64, 48)));
    AwaitDecoded(1);
    m_firmware->SavePicture(path);
    EXPECT_EQ(std::filesystem::file_size(path), 13u + 64 * 48 * 3);
    std::filesystem::remove(path);
}

TEST_F(ScreenTest, EndsWithTheHost) {
    Begin();
    m_host->Close();
    AwaitScreen([](const Json::Value& screen) { return screen["state"] == "idle"; });
}

TEST_F(ScreenTest, IsTurnedOffBySettings) {
    Begin();
    m_firmware->Change([](Settings& settings) { settings.Set("Kvm", "none"); });
    EXPECT_TRUE(m_firmware->Screen().isNull());
    SendChunk(1, 3, 3, Bytes("abc"));
    ExpectSilence();
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
