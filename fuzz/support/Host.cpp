#include "fuzz/support/Host.h"

#include <cstdlib>
#include <filesystem>
#include <utility>

#include "fuzz/support/Loopback.h"
#include "service/ZELLogger.h"
#include "winhost/core/Clock.h"
#include "winhost/core/Gate.h"
#include "winhost/pc/Pc.h"

namespace fs = std::filesystem;
using namespace std::chrono_literals;

namespace fuzz {

namespace {

constexpr auto kMoment = 50us;  // of real time, for threads that have been woken
constexpr int kYields = 500;
constexpr int kMostMoments = 4000;      // until every thread must have come to its end
constexpr unsigned kMostInputs = 5000;  // of one service, as the PC keeps a record of what it did
constexpr uint64_t kMostLog = 1 << 20;  // bytes
// Of the PC's clock.
constexpr std::chrono::milliseconds kStep = 250ms, kLongestStep = 8s;
constexpr auto kTick = 100us;  // of real time

winhost::PcDescription Describe(const std::string& folder, uint16_t dashPort, uint16_t kvmPort) {
    winhost::PcDescription pc;
    pc.root = folder + "/pc";
    pc.environment["PROGRAMDATA"] = "C:\\ProgramData";
    pc.modulePath = "C:\\Program Files\\Tarvix\\Service\\bin\\ZELService.exe";
    winhost::Adapter wired;
    wired.name = "{3C1A5B0E-6E0C-4B0F-9A53-0D5D7A3C1F11}";
    wired.description = "Intel(R) Ethernet Connection I219-LM";
    wired.mac = "00:11:22:33:44:55";
    wired.address = "192.168.1.10";
    wired.mask = "255.255.255.0";
    wired.gateway = "192.168.1.1";
    wired.dhcpServer = "192.168.1.1";
    pc.adapters = {wired};
    pc.dnsServers = {"192.168.1.53"};
    pc.ports = {{uint16_t{664}, dashPort}, {uint16_t{22}, kvmPort}};
    pc.mailbox = "unix:" + folder + "/mailbox";
    return pc;
}

constexpr uint32_t kVersion = 50;

// A moment for the other threads; the first ones as short as can be.
void GiveWay(int moments) {
    if (moments < kYields) {
        std::this_thread::yield();
    } else {
        std::this_thread::sleep_for(kMoment);
    }
}

winhost::Clock& Clock() {
    return winhost::Clock::Instance();
}

}  // namespace

// Never destroyed: a fuzzer ends without running destructors.
Host& Host::Instance() {
    static Host& host = *new Host;
    return host;
}

Host::Host() {
    std::string name = (fs::temp_directory_path() / "zelservice-fuzz-XXXXXX").string();
    Require(mkdtemp(name.data()) != nullptr, "there is a temporary folder");
    m_folder = name;
    Build();
    m_ticker = std::thread([this] { Tick(); });
    m_quietThreads = CountThreads();
}

void Host::Build() {
    m_dashPort = UnusedPort();
    m_kvmPort = UnusedPort();
    m_firmware = std::make_unique<mpm::Firmware>();
    m_firmware->Change([](mpm::Settings& settings) { settings.KeepRequests = false; });
    m_firmware->Listen("unix:" + m_folder + "/mailbox");
    winhost::Pc::Instance().Reset(Describe(m_folder, m_dashPort, m_kvmPort));
    Clock().SetManual(true);
    m_service = std::make_unique<ZELService>("");
    OpenLog();
    Require(m_service->m_mailBoxDriverInterface.OpenMPMDevice() == 0, "the mailbox can be opened");
    m_service->m_mailBoxDriverInterface.m_bServiceUp = 1;
    m_service->SetZELServiceState(1);
    m_service->UpdateManageabilityStatus();
    m_service->m_pDASHClientThreadObj = m_service->m_detachedThreads.StartOwned(
        [service = m_service.get()] { service->m_dashClientInterface.HandleDASHClientThread(); });
    for (int moments = 0; moments < kMostMoments && !m_log.Has("Calling HTTPS Socket Accept"); ++moments) {
        std::this_thread::sleep_for(kMoment);
        m_log.Look();
    }
    m_inputs = 0;
    m_rebuild = false;
}

// As InitializeLogging, but for the process that it asks for the system's version each time.
void Host::OpenLog() {
    const std::string folder = m_service->GetWorkingFolder(), path = folder + "\\zel.log";
    fs::create_directories(winhost::Pc::Instance().HostPath(folder));
    Require(ZELLogger::Instance()->OpenLog("zel", path, folder, kMostLog, ZELLogger::kOneBackup),
            "the log can be opened");
    m_log.Follow(winhost::Pc::Instance().HostPath(path));
}

void Host::TearDown() {
    // As at the end of the process: the log is closed, and time passes by itself.
    Clock().SetManual(false);
    winhost::Gate::Instance().Reset();
    if (ZELLogger* const logger = ZELLogger::Instance()) logger->CloseLog();
    m_service.reset();
    m_firmware.reset();
    std::error_code ignored;
    fs::current_path(m_folder, ignored);
    fs::remove_all(m_folder + "/pc", ignored);
}

// The longer a call takes, the faster time passes.
void Host::Tick() {
    for (;;) {
        m_calling.wait(false);
        for (auto step = kStep; m_calling; step = std::min(2 * step, kLongestStep)) {
            std::this_thread::sleep_for(kTick);
            if (m_calling) Clock().Advance(step);
        }
    }
}

void Host::Patiently(const std::function<void()>& call) {
    m_calling = true;
    m_calling.notify_one();
    call();
    m_calling = false;
}

void Host::NoteTouched() {
    if (std::exchange(m_touched, true)) return;
    // A start of the agent counts as a success without a process. An armed gate costs every call.
    winhost::Gate::Instance().FailNth("CreateProcessAsUserA", 1, ERROR_PIPE_NOT_CONNECTED, true);
}

void Host::Pass(std::chrono::milliseconds time) {
    Clock().Advance(time);
    std::this_thread::sleep_for(kMoment);
}

void Host::Settle() {
    for (int round = 0; round < 10; ++round) {
        std::this_thread::sleep_for(kMoment);
        if (Clock().AwaitSleepers(1, 0ms)) Clock().Advance(100ms);
    }
}

bool Host::EndThreads() {
    for (int moments = 0; CountThreads() > m_quietThreads; ++moments) {
        if (moments == kMostMoments) return false;
        // A report that outlived the wait for it starts it last.
        if (moments % kYields == kYields - 1) m_service->m_networkMonitor.StopNetworkScanThread();
        if (moments % 8 == 0) Clock().Advance(kLongestStep);
        GiveWay(moments);
    }
    return true;
}

void Host::Restore() {
    if (m_faulty) m_firmware->ClearFaults();
    m_faulty = false;
    m_service->m_mailBoxDriverInterface.m_bServiceUp = 1;
    m_service->m_vorkVersion = kVersion;
    if (m_touched) EndSessions();
    m_rebuild = m_rebuild || (m_touched && !EndThreads()) || ++m_inputs == kMostInputs;
    if (std::exchange(m_touched, false)) winhost::Gate::Instance().Reset();
    m_service->m_hostControl.SetPowerOption(kPowerNone);
    if (!m_rebuild) return;
    TearDown();
    Build();
    m_quietThreads = CountThreads();
}

// A report to the firmware that is under way; it starts the scanning thread, which scans for as long as time
// passes.
void Host::AwaitUpdate() {
    for (int moments = 0; m_service->m_bWakeUpdateInProgress && moments < kMostMoments; ++moments)
        GiveWay(moments);
}

void Host::EndSessions() {
    ZELService& service = *m_service;
    KVMSessionControl& kvm = service.m_kvmSessionControl;
    service.m_networkMonitor.UnRegisterWlanNotification();
    AwaitUpdate();
    Patiently([&] {
        service.m_networkMonitor.StopNetworkScanThread();
        // May wait for a send that is about to be tried again.
        service.m_dashClientInterface.CloseSocketInZEL();
        kvm.CloseKVMSession();
        if (kvm.m_kvmSocketState == kKvmClientConnected) kvm.DoKVMCleanUp();
    });
    // A question of type 0 takes the place of any other and answers itself.
    const UserConsentQuestion none{};
    service.m_userConsent.Ask(&none, sizeof none);
    service.m_bWakeUpdateInProgress = 0;
    service.m_bNetworkUpdatesEnabled = 1;
    kvm.m_kvmState = kKvmNeverEnabled;
    kvm.m_kvmSocketState = kKvmNoClient;
    kvm.m_bLuxKvmEnabled = 0;
}

void Host::RequireAlive() {
    m_log.Look();
    constexpr uint8_t kUnknown[] = {200, 0};
    ProcessRead(m_service.get(), sizeof kUnknown, kUnknown);
    m_log.Look();
    Require(m_log.Has("Unknown Command received from driver: 0xc8"), "the service takes the next message");
    uint8_t status = 0;
    Require(m_service->m_mailBoxDriverInterface.GetMPMStatus(&status) == 0 && status != 0,
            "the service gets an answer from its firmware");
}

}  // namespace fuzz
