// The service with its mailbox open and its read loop running, a firmware that has heard of it, and an
// agent's program in the service's folder. Remote KVM has not been enabled.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>

#include <atomic>
#include <csignal>
#include <cstdint>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/ConsoleClient.h"
#include "tests/support/ServiceFixture.h"
#include "winhost/core/Descriptor.h"
#include "winhost/core/HandleTable.h"
#include "winhost/process/ProcessList.h"

class KvmFixture : public ServiceFixture {
  protected:
    static constexpr char kAgent[] = "ZELKVMApp.exe";
    // One that has to be made to leave, or until the test is gone: it waits for a word from it. It has no
    // child, nor becomes another program, since either would show in the list of processes for a moment.
    static constexpr char kStubborn[] = "read word < C:/word";
    // One that leaves when it is asked to.
    static constexpr char kObedient[] =
        "while [ ! -e C:/ProgramData/Tarvix/Manageability/terminate.txt ]; do sleep 0.02; done";
    static constexpr char kBin[] = "C:\\Program Files\\Tarvix\\Service\\bin\\";
    static constexpr char kData[] = "C:\\ProgramData\\Tarvix\\Manageability\\";
    static constexpr char kAccepting[] = "Calling KVM Socket Accept";
    static constexpr char kAnnounced[] = "Response returned for KVM request from Mailbox driver";
    static constexpr char kReceiverExit[] = "KVMDataRecvThread: Exiting Thread Handler";
    static constexpr char kCleanedUp[] = "KVMCleanupCommon: Exiting Thread Handler";
    static constexpr char kAgentRemoved[] = "Exited killProcessByName function";
    // What a request that the firmware refuses leaves in the log.
    static constexpr char kRefused[] = "GetOverlappedResult failed for SendIOCtlToDriver with error: ";
    static constexpr char kRefusedReturn[] =
        "Return from MailBoxDriverInterface::SendIOCtlToDriver(), dwIoControlCode = ";
    static constexpr char kGateClosed[] =
        "Error Service is not signalled as Up, returning: 1062 to the caller";
    static constexpr char kDeviceClosed[] = "Error Invalid Handle, returning: 6 to the caller";

    void SetUp() override {
        ServiceFixture::SetUp();
        const std::string word = HostPath("C:\\word");
        ASSERT_EQ(mkfifo(word.c_str(), 0600), 0);
        m_word = winhost::Descriptor(open(word.c_str(), O_RDWR | O_CLOEXEC));
        WriteProgram(kAgent, kStubborn);
        // How a session ends: by closing the listener.
        AllowError("accept() API failed with error: ");
        AllowError("RunServerKVMThread: KVM socket Accept failed, closing the base socket and retry...");
    }

    void TearDown() override {
        KillPrograms();
        ServiceFixture::TearDown();
        KillPrograms();
    }

    // The firmware's version in tenths.
    void Start(uint32_t version = 31) {
        firmware.Change([&](mpm::Settings& settings) { settings.uVORKVersion = version; });
        OpenMailbox();
        service->UpdateManageabilityStatus();
        service->SetZELServiceState(1);
        service->m_pMBDriverReadThreadObj = service->m_detachedThreads.StartOwned(
            [service = service.get()] { ReadFromMailBoxDriverThread(service); });
        ASSERT_TRUE(firmware.AwaitHostListening());
    }

    // ---- the firmware's commands ----

    void SendEnable() { firmware.Send(MPM_ZEL_CMD_KVM_ENABLE_STATUS); }
    void SendClose() { firmware.Send(MPM_ZEL_CMD_VNC_SOC_CLOSE); }
    void SendTrust(const char* address, uint32_t port = 0) {
        const uint32_t payload[2] = {inet_addr(address), port};
        firmware.Send(MPM_ZEL_CMD_KVM_IP_PORT_INFO, mpm::Bytes::Of(payload));
    }
    void SendSafeboot(uint32_t state) { firmware.Send(MPM_ZEL_SAFEBOOT, mpm::Bytes::Of(state)); }
    // Until the read thread has handled all that was sent before.
    void AwaitHandled() {
        constexpr auto kUnknown = static_cast<MpmCommand>(200);
        constexpr char kAnswer[] = "Unknown Command received from driver: 0xc8";
        const size_t before = LogCount(kAnswer);
        firmware.Send(kUnknown);
        AwaitLog(kAnswer, before + 1);
    }

    // From now on the firmware doesn't answer these requests; returns when it has got one.
    void AwaitSilenceAt(const char* request) {
        const auto held = std::make_shared<std::atomic<bool>>(false);
        firmware.Observe([held](const mpm::Event& event) {
            if (event.kind == mpm::Event::Kind::Note && event.name == "held") *held = true;
        });
        firmware.Hold(request);
        ASSERT_TRUE(Eventually([&] { return held->load(); }));
    }

    // ---- sessions ----

    // Until the service has begun to wait for so many clients.
    void AwaitAccepting(size_t count = 1) { AwaitLog(kAccepting, count); }
    void Enable() {
        const size_t before = LogCount(kAccepting);
        SendEnable();
        AwaitAccepting(before + 1);
    }
    // The port that stands for 22.
    static uint16_t Port() { return Pc().Description().ports.at(22); }
    static ConsoleClient Connect() { return ConsoleClient(Port()); }
    // A client whose connection has been announced to the firmware, and which the service attends to.
    ConsoleClient ConnectSession() {
        const size_t before = LogCount(kAnnounced), accepting = LogCount(kAccepting);
        ConsoleClient client = Connect();
        AwaitLog(kAnnounced, before + 1);
        AwaitAccepting(accepting + 1);
        return client;
    }
    ConsoleClient StartSession(uint32_t version = 31) {
        Start(version);
        Enable();
        return ConnectSession();
    }
    // Ends the session by command 35, to the last step of its clean-up.
    void CloseSession() {
        SendClose();
        AwaitHandled();
    }
    // Lets the 2 seconds pass after which the agent is made to leave.
    void PassAgentCleanUp() {
        const size_t before = LogCount(kAgentRemoved);
        PassSleepOf(std::chrono::seconds(2));
        AwaitLog(kAgentRemoved, before + 1);
        AwaitLog("DisplayMgr file ", before + 1);
    }
    bool AwaitState(uint8_t state) {
        return Eventually([&] { return service->m_kvmSessionControl.m_kvmState == state; });
    }
    // What the clients have sent, as the firmware has it.
    std::string FirmwareBytes() const {
        std::string bytes;
        for (const mpm::Request& request : firmware.Requests("WriteKVMPacket"))
            bytes += request.Text();
        return bytes;
    }
    bool AwaitFirmwareBytes(const std::string& bytes) {
        return Eventually([&] { return FirmwareBytes() == bytes; });
    }
    // "YES" or "NO", as the status file has it.
    std::string StatusFileKvm() const {
        const std::string text = ReadFile(service->GetStatusFilePath());
        const size_t key = text.find("\"KVMStatus\" : \"");
        if (key == std::string::npos) return "none";
        const size_t value = key + 15;
        return text.substr(value, text.find('"', value) - value);
    }

    // ---- the PC ----

    // A program that runs these lines of the shell, with the PC's root as its folder.
    static void WriteProgram(const std::string& name, const std::string& lines,
                             const std::string& folder = kBin) {
        const std::filesystem::path path = HostPath(folder + name);
        std::filesystem::create_directories(path.parent_path());
        std::ofstream(path) << "#!/bin/sh\n" << lines << "\n";
        std::filesystem::permissions(path, std::filesystem::perms::owner_all);
    }
    static std::string ReadFile(const std::string& windowsPath) {
        std::ifstream file(HostPath(windowsPath));
        std::ostringstream text;
        text << file.rdbuf();
        return text.str();
    }
    static void WriteFile(const std::string& windowsPath, const std::string& text) {
        std::ofstream(HostPath(windowsPath)) << text;
    }
    static bool Exists(const std::string& windowsPath) {
        return std::filesystem::exists(std::filesystem::symlink_status(HostPath(windowsPath)));
    }
    static std::string TerminateFile() { return std::string(kData) + "terminate.txt"; }
    static std::string DisplayMgrLog() { return std::string(kData) + "DisplayMgr.log"; }

    static std::vector<DWORD> IdsOf(const std::string& name) {
        std::vector<DWORD> ids;
        for (const auto& entry : winhost::ListProcesses())
            if (entry.name == name) ids.push_back(entry.id);
        return ids;
    }
    static size_t Agents() { return IdsOf(kAgent).size(); }
    static bool AwaitAgents(size_t count) {
        return Eventually([=] { return Agents() == count; });
    }
    // All of the PC's but this one, and what they start meanwhile.
    static void KillPrograms() {
        EXPECT_TRUE(Eventually([] {
            bool none = true;
            for (const auto& entry : winhost::ListProcesses()) {
                if (entry.described || entry.id == GetCurrentProcessId()) continue;
                kill(static_cast<pid_t>(entry.id), SIGKILL);
                none = false;
            }
            return none;
        }));
    }
    // Starts count as successes without any process.
    void StartNoAgents() {
        AllowError("CreateProcessAsUser failed with error: 233");
        Gate().FailNth("CreateProcessAsUserA", 1, ERROR_PIPE_NOT_CONNECTED, true);
    }
    static size_t OpenHandles() { return winhost::HandleTable::Instance().Size(); }

  private:
    winhost::Descriptor m_word;
};
