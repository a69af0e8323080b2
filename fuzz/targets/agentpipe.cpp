// The KVM agent's end of its pipe: any messages to the thread that serves it, on a whole service. The two
// threads of the display are those of this input, because the end of a service cancels its pipe for good.
#include <winsock2.h>
#include <windows.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "base/Handles.h"
#include "fuzz/Input.h"
#include "fuzz/support/Host.h"
#include "kvm/AgentPipeRecords.h"
#include "kvm/ZelKvmAppThread.h"

namespace {

constexpr int kMostMoments = 4000;
constexpr int kMostMessages = 3;

// Remembers what it is asked for.
class NoScreen : public DisplayMgr {
  public:
    bool Init(const DisplayMgrInitArgs& args) override {
        m_args = args;
        ++inits;
        return true;
    }
    bool CaptureEncode(EncodedFrameBuffer*, size_t*) override { return false; }
    void Terminate() override {}
    const DisplayMgrInitArgs& Args() const { return m_args; }

    std::atomic<int> inits{0};

  private:
    DisplayMgrInitArgs m_args{};
};

class Agent {
  public:
    // False while there is no pipe.
    bool Connect() {
        m_pipe.Reset(
            CreateFileA(kAgentPipeName, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
        DWORD mode = PIPE_READMODE_MESSAGE;
        return m_pipe && SetNamedPipeHandleState(m_pipe.Get(), &mode, nullptr, nullptr);
    }
    // Each call waits for the service, or until it hangs up.
    void Speak(const std::vector<std::string>& messages) {
        DWORD size = 0;
        for (const std::string& message : messages)
            if (!WriteFile(m_pipe.Get(), message.data(), static_cast<DWORD>(message.size()), &size, nullptr))
                return;
    }
    std::string Receive() {
        char text[64];
        DWORD size = 0;
        return ReadFile(m_pipe.Get(), text, sizeof text, &size, nullptr) ? std::string(text, size)
                                                                         : std::string();
    }
    void Leave() { m_pipe.Reset(); }

  private:
    UniqueFileHandle m_pipe;
};

// What the first message says of the display, when it says something.
std::optional<ZEL_ServiceToKVMApp_pipe> ConfigIn(const std::vector<std::string>& messages) {
    ZEL_ServiceToKVMApp_pipe record{};
    if (messages.empty() || messages.front().size() < sizeof record) return std::nullopt;
    std::memcpy(&record, messages.front().data(), sizeof record);
    if (record.message != eNotifyDisplayConfig) return std::nullopt;
    return record;
}

void Await(fuzz::Host& host, const std::function<bool()>& holds) {
    for (int moments = 0; moments < kMostMoments && !holds(); ++moments) {
        host.Pace().WakeNext();
        host.Pace().GiveWay(moments);
    }
}

}  // namespace

FUZZ_TARGET(agentpipe) {
    fuzz::Input from(input);
    const uint8_t how = from.Byte();
    const bool connects = !(how & 1), leaves = how & 2, starts = !(how & 4);
    std::vector<std::string> messages;
    while (connects && messages.size() < kMostMessages && !from.AtEnd())
        messages.push_back(fuzz::TextOf(from.LongBlock()));

    fuzz::Host& host = fuzz::Host::Instance();
    host.Note(fuzz::Host::kThreads);
    const size_t before = host.Firmware().Count("WriteDisplayConfig");
    const std::atomic<uint8_t> enabled{1};
    NoScreen screen;
    DisplayCaptureThread capture(screen, enabled);
    ZelKvmAppThread app(capture);
    capture.Start();
    app.Start();
    Agent agent;
    std::string received;
    std::atomic<bool> hasTalked{false};
    std::thread talk;
    if (connects) {
        Await(host, [&] { return agent.Connect(); });
        talk = std::thread([&] {
            agent.Speak(messages);
            if (!leaves) received = agent.Receive();
            agent.Leave();
            hasTalked = true;
        });
    }
    const auto config = ConfigIn(messages);
    if (config) Await(host, [&] { return screen.inits > 0; });
    if (starts) app.SetKvmAppEvent(AppEvtStartKVMOperation);
    if (config && starts && !leaves && messages.size() == 1 && messages.front().size() == sizeof *config)
        Await(host, [&] { return hasTalked.load(); });
    host.Pace().Patiently([&] {
        app.SignalStop();
        app.Stop();
        capture.SignalStop();
        capture.Stop();
    });
    if (talk.joinable()) talk.join();
    host.Log().Look();

    const size_t sent = host.Firmware().Count("WriteDisplayConfig") - before;
    fuzz::Require(sent == (config ? 1 : 0), "the firmware gets a configuration that the agent has sent");
    fuzz::Require(screen.inits == (config ? 1 : 0), "a screen is captured for a configuration");
    if (config)
        fuzz::Require(screen.Args().width == config->width && screen.Args().height == config->height &&
                          screen.Args().monitorIndex == config->vidPnSourceId,
                      "the configuration arrives as it was sent");
    const std::string start(reinterpret_cast<const char*>(&eNotifyStartKVMOperation), sizeof(uint32_t));
    fuzz::Require(received.empty() || (starts && received == start),
                  "the agent gets the start message or none");
    host.Restore();
}
