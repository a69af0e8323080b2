#include "fuzz/support/Host.h"

#include <cstdlib>
#include <filesystem>
#include <utility>

#include "base/ZELLogger.h"
#include "fuzz/support/Loopback.h"
#include "service/CommandDispatch.h"
#include "tests/support/Laptop.h"
#include "winhost/core/Clock.h"
#include "winhost/core/Gate.h"
#include "winhost/pc/Pc.h"

namespace fs = std::filesystem;

namespace fuzz {

namespace {

constexpr int kMostMoments = 4000;      // until every thread must have come to its end
constexpr int kMostRounds = 20;         // until every connection must have been served
constexpr unsigned kMostInputs = 5000;  // of one service, as the PC keeps a record of what it did
constexpr uint64_t kMostLog = 1 << 20;  // bytes
constexpr uint32_t kVersion = 50;

// In the log.
constexpr const char* kAccepted = "Process the accepted connection";
constexpr const char* kServed = "Processing DASH traffic for socket with address";
constexpr const char* kRefused = "Failed to create socket for DASH client with address";
constexpr const char* kReset = "send() failed 5 times";  // ends DASH for good

winhost::Clock& Clock() {
    return winhost::Clock::Instance();
}

// An input chooses the host of the alerts, which are not to leave the machine.
void KeepAlertsHere() {
    constexpr uint32_t kCannotConnect = 12029;
    winhost::Gate::Instance().FailNth("WinHttpSendRequest", 1, kCannotConnect, true);
}

}  // namespace

// Never destroyed: its threads run as long as the process.
Host& Host::Instance() {
    static Host& host = *new Host;
    return host;
}

Host::Host() {
    std::string name = (fs::temp_directory_path() / "zelservice-fuzz-XXXXXX").string();
    Require(mkdtemp(name.data()) != nullptr, "there is a temporary folder");
    m_folder = name;
    Build();
    m_quietThreads = CountThreads();
    // Statics of the service go after this, and no thread may be waiting with them.
    std::atexit([] {
        Instance().TearDown();
        std::error_code ignored;
        fs::remove_all(Instance().m_folder, ignored);
    });
}

void Host::Build() {
    m_dashPort = UnusedPort();
    m_kvmPort = UnusedPort();
    m_firmware = std::make_unique<mpm::Firmware>();
    m_firmware->Change([](mpm::Settings& settings) { settings.KeepRequests = false; });
    m_firmware->Listen("unix:" + m_folder + "/mailbox");
    winhost::PcDescription pc = DescribeLaptop(m_folder + "/pc");
    pc.ports = {{uint16_t{664}, m_dashPort}, {uint16_t{22}, m_kvmPort}};
    pc.mailbox = "unix:" + m_folder + "/mailbox";
    winhost::Pc::Instance().Reset(pc);
    KeepAlertsHere();
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
        m_pace.GiveWay(moments);
        m_log.Look();
    }
    m_inputs = 0;
}

// As InitializeLogging, but for the process that it asks for the system's version each time.
void Host::OpenLog() {
    const std::string folder = m_service->GetWorkingFolder(), path = folder + "\\zel.log";
    fs::create_directories(winhost::Pc::Instance().HostPath(folder));
    m_service->m_bWorkingFolderSecure = true;
    Require(ZELLogger::Instance()->OpenLog("zel", path, folder, kMostLog, ZELLogger::kOneBackup),
            "the log can be opened");
    m_log.Follow(winhost::Pc::Instance().HostPath(path));
    CountConnections();
}

void Host::CountConnections() {
    for (const char* phrase : {kAccepted, kServed, kRefused, kReset})
        m_log.Count(phrase);
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

void Host::Note(unsigned uses) {
    // A session's receive thread polls.
    if (uses & kConsole) m_pace.SetPolling(true);
    // A start of the agent counts as a success without a process.
    if (uses & ~m_uses & kKvm)
        winhost::Gate::Instance().FailNth("CreateProcessAsUserA", 1, ERROR_PIPE_NOT_CONNECTED, true);
    m_uses |= uses;
}

bool Host::EndThreads() {
    for (int moments = 0; moments < kMostMoments; ++moments) {
        const bool asleep = Clock().NextDeadline() != winhost::Clock::kNever;
        if (!asleep && CountThreads() <= m_quietThreads) return true;
        // A report that outlived the wait for it starts it last.
        if (moments % Pace::kShortMoments == Pace::kShortMoments - 1)
            m_service->m_networkMonitor.StopNetworkScanThread();
        if (m_pace.IsOnOneCore() || moments % 8 == 0) m_pace.WakeNext();
        m_pace.GiveWay(moments);
    }
    return false;
}

// False when only a new service gets rid of what a console has left: a connection that still waits, or whose
// fault has ended DASH for good.
bool Host::EndConsole() {
    const auto over = [&] { return m_log.Counted(kServed) + m_log.Counted(kRefused); };
    size_t closed = 0;
    for (int round = 0; round < kMostRounds; ++round) {
        m_pace.GiveWay();
        m_log.Look();
        if (over() != closed) {
            // Each that was served; the begin of a session can't be seen in time.
            closed = over();
            m_pace.Patiently([&] { m_service->m_dashClientInterface.CloseSocketInZEL(); });
        } else if (closed == m_log.Counted(kAccepted) && Clock().NextDeadline() == winhost::Clock::kNever) {
            break;
        }
        m_pace.WakeNext();
    }
    return closed == m_log.Counted(kAccepted) && m_log.Counted(kReset) == 0;
}

void Host::Restore() {
    const unsigned uses = m_uses;
    if (uses & kFaults) m_firmware->ClearFaults();
    m_service->m_mailBoxDriverInterface.m_bServiceUp = 1;
    m_service->m_vorkVersion = kVersion;
    EndSessions(uses);
    const bool worn = ((uses & ~kFaults) && !EndThreads()) || ((uses & kConsole) && !EndConsole()) ||
                      ++m_inputs == kMostInputs;
    m_uses = kNothing;
    CountConnections();
    if (uses & kKvm) {
        winhost::Gate::Instance().Reset();
        KeepAlertsHere();
    }
    m_service->m_indications.m_bIndicationSubscribed = 0;
    m_service->m_hostControl.SetPowerOption(kPowerNone);
    if (!worn) return;
    TearDown();
    Build();
    m_quietThreads = CountThreads();
}

// A report to the firmware that is under way; it starts the scanning thread, which scans for as long as time
// passes.
void Host::AwaitUpdate() {
    for (int moments = 0; m_service->m_bWakeUpdateInProgress && moments < kMostMoments; ++moments)
        m_pace.GiveWay(moments);
}

void Host::EndSessions(unsigned uses) {
    if (uses & kReports) EndReports();
    if (uses & kDash) {
        // What a console's last doings begin, it ends.
        if (uses & kConsole) m_pace.GiveWay();
        // May wait for a send that is about to be tried again.
        m_pace.Patiently([&] { m_service->m_dashClientInterface.CloseSocketInZEL(); });
        m_pace.SetPolling(false);
    }
    if (uses & kKvm) EndKvm();
    if (uses & kQuestions) {
        // A question of type 0 takes the place of any other and answers itself.
        const UserConsentQuestion none{};
        m_service->m_userConsent.Ask(&none, sizeof none);
    }
}

void Host::EndReports() {
    NetworkMonitor& monitor = m_service->m_networkMonitor;
    monitor.UnRegisterWlanNotification();
    AwaitUpdate();
    monitor.StopNetworkScanThread();
    m_service->m_bWakeUpdateInProgress = 0;
    m_service->m_bNetworkUpdatesEnabled = 1;
}

void Host::EndDisplay() {
    DisplayManager& display = m_service->m_kvmClientInterface.m_displayManager;
    m_pace.Patiently([&] { display.EndThreads(); });
    display.m_bLuxKvmEnabled = 0;
}

void Host::EndKvm() {
    EndDisplay();
    KVMClientInterface& kvm = m_service->m_kvmClientInterface;
    m_pace.Patiently([&] {
        kvm.CloseKVMSession();
        if (kvm.m_kvmSocketState == kKvmClientConnected) kvm.DoKVMCleanUp();
    });
    kvm.m_kvmState = kKvmNeverEnabled;
    kvm.m_kvmSocketState = kKvmNoClient;
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
