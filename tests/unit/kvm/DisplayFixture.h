// The display's threads on a linked service, with a pipeline that does what the test says, and an agent's end
// of the pipe.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <future>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "KVMDisplayMgrLib/src/DisplayMgr.h"
#include "kvm/AgentPipeRecords.h"
#include "kvm/DisplayManager.h"
#include "mailbox/DisplayRecords.h"
#include "tests/unit/kvm/KvmFixture.h"

// Yields frames of the sizes that the test names; the last size repeats.
class ScriptedDisplayMgr : public DisplayMgr {
  public:
    static uint8_t ByteAt(size_t frame, size_t offset) {
        return static_cast<uint8_t>(frame * 31 + offset * 7 + (offset >> 13));
    }

    bool Init(const DisplayMgrInitArgs& args) override {
        {
            std::lock_guard lock(m_mutex);
            m_inits.push_back(args);
        }
        HangIf(hangsInInit);
        return failures-- <= 0;
    }
    bool CaptureEncode(EncodedFrameBuffer* frame, size_t* size) override {
        const size_t number = captures++;
        HangIf(hangsInCapture);
        if (throws) throw std::runtime_error("no more memory");
        if (failing-- > 0) return false;
        size_t bytes;
        {
            std::lock_guard lock(m_mutex);
            bytes = m_sizes[std::min(number, m_sizes.size() - 1)];
        }
        if (bytes > frame->capacity) {
            frame->bytes = std::make_unique<uint8_t[]>(bytes);
            frame->capacity = bytes;
        }
        for (size_t offset = 0; offset < bytes; ++offset)
            frame->bytes[offset] = ByteAt(number, offset);
        *size = bytes + claimed;
        return true;
    }
    void Terminate() override {
        if (++terminations == 1) HangIf(hangsInTerminate);
    }

    void SetSizes(std::vector<size_t> sizes) {
        std::lock_guard lock(m_mutex);
        m_sizes = std::move(sizes);
    }
    std::vector<DisplayMgrInitArgs> Inits() const {
        std::lock_guard lock(m_mutex);
        return m_inits;
    }

    std::atomic<int> failures{0};  // of Init, before the first success
    std::atomic<int> failing{0};   // of CaptureEncode, before the first frame
    std::atomic<bool> throws{false};
    std::atomic<bool> hangsInInit{false}, hangsInCapture{false}, hangsInTerminate{false};
    std::atomic<size_t> claimed{0};  // bytes that a frame does not have
    std::atomic<size_t> captures{0}, terminations{0};
    std::atomic<int> hanging{0};

  private:
    void HangIf(const std::atomic<bool>& hangs) {
        if (!hangs) return;
        ++hanging;
        while (hangs)
            Sleep(50);
    }

    mutable std::mutex m_mutex;
    std::vector<DisplayMgrInitArgs> m_inits;
    std::vector<size_t> m_sizes{21000};
};

// The agent's end of the pipe.
class AgentPeer {
  public:
    // Connects as soon as there is a pipe.
    AgentPeer() {
        for (int patience = 20000; !TryConnect(); --patience) {
            if (patience == 0) throw std::runtime_error("no pipe for the agent");
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
    ~AgentPeer() { Leave(); }

    // Until the service has read it, or hung up.
    void Send(const std::string& bytes) {
        DWORD size = 0;
        WriteFile(m_pipe.Get(), bytes.data(), static_cast<DWORD>(bytes.size()), &size, nullptr);
    }
    void SendConfig(uint32_t width = 1920, uint32_t height = 1080, uint32_t source = 2,
                    uint32_t message = eNotifyDisplayConfig) {
        const ZEL_ServiceToKVMApp_pipe record{message, width, height, source};
        Send(std::string(reinterpret_cast<const char*>(&record), sizeof record));
    }
    // The next message; empty when the service has hung up.
    std::string Read() {
        std::string text(64, '\0');
        DWORD size = 0;
        if (!ReadFile(m_pipe.Get(), text.data(), static_cast<DWORD>(text.size()), &size, nullptr)) return {};
        text.resize(size);
        return text;
    }
    void Leave() { m_pipe.Reset(); }

  private:
    bool TryConnect() {
        m_pipe.Reset(
            CreateFileA(kAgentPipeName, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
        DWORD mode = PIPE_READMODE_MESSAGE;
        return m_pipe && SetNamedPipeHandleState(m_pipe.Get(), &mode, nullptr, nullptr);
    }

    UniqueFileHandle m_pipe;
};

class DisplayFixture : public KvmFixture {
  protected:
    static constexpr char kBroughtUp[] = "LUX_KVM: MAX_CHUNK_BUFFER_SZ_512KB allocation done ";
    static constexpr char kAwaitsAgent[] = "LUX_KVM: Waiting for the named pipe connection";
    static constexpr char kAwaitsStart[] = "LUX_KVM: Waiting for KVM app event";
    static constexpr char kTerminated[] = "LUX_KVM: mgr.Terminate Done";
    static constexpr char kExitEvent[] = "LUX_KVM: Recevied DispEvtCaptureEncodeExit";
    static constexpr char kCaptureStopped[] = "LUX_KVM: DisplayCaptureThread exit complete";
    static constexpr char kAppStopped[] = "LUX_KVM: ZelKvmAppThread exit complete";

    void SetUp() override {
        KvmFixture::SetUp();
        StartNoAgents();
        // How a capture thread ends.
        AllowError(kExitEvent);
    }
    void TearDown() override {
        EndManager();
        KvmFixture::TearDown();
    }

    // A service whose firmware has this level, in agent mode.
    void StartManager(uint32_t version = 50) {
        Start(version);
        manager = std::make_unique<DisplayManager>(service->m_kvmClientInterface.m_agent, mgr);
    }
    // Command 49's work.
    bool Begin() {
        if (!manager) StartManager();
        manager->m_bLuxKvmEnabled = 1;
        return manager->DoInitLUXKVM();
    }
    // The next wait of the thread that has logged this text fails, once. The log itself waits too.
    void FailWaitBehind(const std::string& text) {
        const auto failed = std::make_shared<std::atomic<bool>>(false);
        Gate().Ask([=, this](const char* call, const void*) -> uint32_t {
            if (*failed || std::string_view(call) != "WaitForSingleObject") return 0;
            const auto lines = Log();
            const bool isDue = std::any_of(lines.begin(), lines.end(), [&](const LogLine& line) {
                return line.message.find(text) != std::string::npos && line.thread == GetCurrentThreadId();
            });
            return isDue && !failed->exchange(true) ? ERROR_INVALID_HANDLE : ERROR_SUCCESS;
        });
    }
    size_t LaunchCount(const std::string& options) {
        return std::ranges::count_if(Messages(), [&](const std::string& message) {
            return message.starts_with("KVM APP Command:") && message.ends_with(options);
        });
    }
    // A session whose pipeline is up.
    void BringUp() {
        const size_t before = LogCount(kBroughtUp);
        Begin();
        AgentPeer().SendConfig();
        AwaitLog(kBroughtUp, before + 1);
        AwaitLog(kAwaitsStart, before + 1);
    }
    // Lets time pass until `work` has returned.
    static void InTime(const std::function<void()>& work,
                       std::chrono::milliseconds step = std::chrono::milliseconds(100)) {
        std::atomic<bool> over{false};
        std::thread thread([&] {
            work();
            over = true;
        });
        const bool came = Eventually([&] {
            if (!over && Clock().AwaitSleeper(step, std::chrono::milliseconds(1))) Advance(step);
            return over.load();
        });
        if (!came) Clock().SetManual(false);
        thread.join();
        EXPECT_TRUE(came) << "it does not end";
    }
    void StopCapture() {
        InTime([&] { manager->StopDisplayCaptureThread(); }, std::chrono::seconds(1));
    }
    void StopApp() {
        InTime([&] { manager->StopZelKvmAppThread(); });
    }
    void EndManager() {
        if (!manager) return;
        manager->SignalStop();
        StopCapture();
        StopApp();
        manager.reset();
    }

    // Asks for the next chunk, as command 48 does, and waits for the record.
    mpm::Request AskForChunk() {
        const size_t before = firmware.Count("WriteEncodedBuffer");
        manager->SetDisplayMgrEvent(DispEvtCaptureEncodeStart);
        if (!firmware.AwaitCount("WriteEncodedBuffer", before + 1, kPatience))
            throw std::runtime_error("no record of a chunk");
        return firmware.Requests("WriteEncodedBuffer").back();
    }

    ScriptedDisplayMgr mgr;
    std::unique_ptr<DisplayManager> manager;
};
