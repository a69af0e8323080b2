// A firmware with --kvm screen, and a host that a test plays.
#pragma once

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

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

inline Settings ScreenSettingsWith(std::initializer_list<std::pair<const char*, const char*>> more) {
    Settings settings;
    settings.Set("Kvm", "screen");
    settings.Set("Screen.Settle", "0");
    settings.Set("Screen.FrameRate", "240");
    for (const auto& [key, value] : more)
        settings.Set(key, value);
    return settings;
}

class ScreenFixture : public testing::Test {
  protected:
    ScreenFixture() { Start({}); }

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

}  // namespace mpm::test
