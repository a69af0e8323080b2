// A service that is linked with its firmware, and an agent's program in its folder. Remote KVM has not been
// enabled.
#pragma once

#include <cstdint>
#include <fstream>
#include <sstream>
#include <string>

#include "tests/support/ConsoleClient.h"
#include "tests/support/LinkedFixture.h"

class KvmFixture : public LinkedFixture {
  protected:
    static constexpr char kAgent[] = "ZELKVMApp.exe";
    // One that leaves when it is asked to.
    static constexpr char kObedient[] =
        "while [ ! -e C:/ProgramData/Tarvix/Manageability/terminate.txt ]; do sleep 0.02; done";
    static constexpr char kData[] = "C:\\ProgramData\\Tarvix\\Manageability\\";
    static constexpr char kAccepting[] = "Calling KVM Socket Accept";
    static constexpr char kAnnounced[] = "Response returned for KVM request from Mailbox driver";
    static constexpr char kReceiverExit[] = "KVMDataRecvThread: Exiting Thread Handler";
    static constexpr char kCleanedUp[] = "KVMCleanupCommon: Exiting Thread Handler";
    static constexpr char kAgentRemoved[] = "Exited killProcessByName function";

    void SetUp() override {
        LinkedFixture::SetUp();
        WriteProgram(kAgent, kStubborn);
        // How a session ends: by closing the listener.
        AllowError("accept() API failed with error: ");
        AllowError("RunServerKVMThread: KVM socket Accept failed, closing the base socket and retry...");
    }

    void Start(uint32_t version = 31) { LinkedFixture::Start(version); }

    // ---- the firmware's commands ----

    void SendEnable() { firmware.Send(MPM_ZEL_CMD_KVM_ENABLE_STATUS); }
    void SendClose() { firmware.Send(MPM_ZEL_CMD_VNC_SOC_CLOSE); }
    void SendTrust(const char* address, uint32_t port = 0) {
        const uint32_t payload[2] = {inet_addr(address), port};
        firmware.Send(MPM_ZEL_CMD_KVM_IP_PORT_INFO, mpm::Bytes::Of(payload));
    }
    void SendSafeboot(uint32_t state) { firmware.Send(MPM_ZEL_SAFEBOOT, mpm::Bytes::Of(state)); }

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
    // Lets the time pass in which a client that connects during a session may leave again.
    static void PassScanPatience() { PassSleepOf(std::chrono::milliseconds(100)); }
    // Lets the time pass in which the receive thread still waits for a client that was replaced.
    static void PassReplacementPoll() { PassSleepOf(std::chrono::milliseconds(50)); }
    // A client whose connection has been announced to the firmware, and which the service attends to.
    ConsoleClient ConnectSession() {
        const size_t before = LogCount(kAnnounced), accepting = LogCount(kAccepting);
        const bool isSecond = service->m_kvmClientInterface.m_kvmSocketState == kKvmClientConnected;
        ConsoleClient client = Connect();
        if (isSecond) PassScanPatience();
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
        // The next listener does not wait any more.
        EXPECT_TRUE(Eventually([&] { return service->m_kvmClientInterface.m_kvmState != kKvmClosing; }));
    }
    bool AwaitState(uint8_t state) {
        return Eventually([&] { return service->m_kvmClientInterface.m_kvmState == state; });
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

    static size_t Agents() { return IdsOf(kAgent).size(); }
    static bool AwaitAgents(size_t count) {
        return Eventually([=] { return Agents() == count; });
    }
    // Starts count as successes without any process.
    void StartNoAgents() {
        AllowError("CreateProcessAsUser failed with error: 233");
        Gate().FailNth("CreateProcessAsUserA", 1, ERROR_PIPE_NOT_CONNECTED, true);
    }
};
