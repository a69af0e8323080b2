#include "tests/faults/Scenarios.h"

#include <wlanapi.h>

#include <cstring>
#include <filesystem>

#include "kvm/AgentPipeRecords.h"
#include "mailbox/ConsentRecords.h"
#include "mailbox/WiFiSyncRecord.h"
#include "tests/faults/Errands.h"
#include "tests/faults/PipeProgram.h"
#include "winhost/wlan/WlanNetworks.h"
#include "tests/support/DriverPc.h"
#include "winhost/wlan/WlanService.h"

namespace {

constexpr char kListening[] = "Calling HTTPS Socket Accept";
constexpr char kSession[] = "Processing DASH traffic for socket with address: ";
constexpr char kViewerAnnounced[] = "Response returned for KVM request from Mailbox driver";
constexpr char kViewerGone[] = "KVMCleanupCommon: Exiting Thread Handler";
constexpr char kScanned[] = "Available NICs Count";
constexpr char kAgentRemoved[] = "Exited killProcessByName function";
constexpr char kCloudRuns[] = "NUBA port 4433";
constexpr char kScreenReady[] = "LUX_KVM: MAX_CHUNK_BUFFER_SZ_512KB allocation done ";
constexpr char kConsentPipeName[] = "\\\\.\\pipe\\userconsentfeature";
constexpr uint32_t kWiredType = 6, kWirelessType = 71;
constexpr uint16_t kDashPort = 664, kKvmPort = 22;

void Nothing(World&) {}

void Settled(World& world) {
    world.LaunchAndSettle();
}

void SettledWithAgent(World& world) {
    world.InstallAgent();
    world.LaunchAndSettle();
}

// ---- start, and the first report to the firmware ----

// The first report waits for the firmware.
void HoldFirstUpdate(World& world) {
    world.firmware.Hold("GetMPMStatus");
}

void HoldFirstUpdateOfPackage(World& world) {
    world.InstallPackage();
    HoldFirstUpdate(world);
}

void SettledPackage(World& world) {
    world.InstallPackage();
    world.LaunchAndSettle();
}

void Start(World& world) {
    world.Launch();
    world.Until([&] { return world.firmware.HostListening(); });
}

void BeforeFirstUpdate(World& world) {
    HoldFirstUpdate(world);
    Start(world);
    world.Settle();
}

void FirstUpdate(World& world) {
    world.firmware.Release("GetMPMStatus");
    world.UntilLogged(kListening);
    world.Until([&] { return world.firmware.Count("WriteMultiNwInfo") > 0; });
}

// ---- consoles ----

bool ConnectConsole(World& world, Wire& console) {
    return world.Until([&] { return console.Connect(World::PortFor(kDashPort)); });
}

void Dash(World& world) {
    Wire& console = world.NewWire();
    Wire& second = world.NewWire();
    ConnectConsole(world, console);
    world.UntilLogged(kSession);
    console.Send("a request");
    world.Until([&] { return world.firmware.Count("WriteDASHPacket") >= 1; });
    world.firmware.SendDash("an answer");
    world.Until([&] { return console.Received() == "an answer" || console.IsClosed(); });
    ConnectConsole(world, second);
    console.Close();
    world.UntilLogged(kSession, 2);
    second.Send("another");
    world.Until([&] { return world.firmware.Count("WriteDASHPacket") >= 2; });
    // Nothing is sent any more.
    world.Until([&] { return second.IsClosed(); });
}

void Power(World& world) {
    Wire& console = world.NewWire();
    ConnectConsole(world, console);
    world.UntilLogged(kSession);
    for (const MpmCommand command :
         {MPM_ZEL_CMD_HOST_CYCLE_SOFT, MPM_ZEL_CMD_HOST_HIBERNATE, MPM_ZEL_CMD_HOST_OFF_SOFT_GRACE}) {
        const size_t before = World::Pc().Records<winhost::PowerAction>().size();
        World::Pc().Change([](auto& pc) { pc.shuttingDown = false; });
        world.firmware.Send(command);
        world.firmware.SendDash("done");
        world.Until([&] { return World::Pc().Records<winhost::PowerAction>().size() > before; },
                    World::Seconds(10));
    }
}

// ---- viewers ----

void EnterKvmSession(World& world, Wire& viewer) {
    world.firmware.Send(MPM_ZEL_CMD_KVM_ENABLE_STATUS);
    world.Until([&] { return viewer.Connect(World::PortFor(kKvmPort)); });
    world.UntilLogged(kViewerAnnounced);
}

void Kvm(World& world) {
    Wire& viewer = world.NewWire();
    EnterKvmSession(world, viewer);
    viewer.Send("a key");
    world.Until([&] { return world.firmware.Count("WriteKVMPacket") >= 1; });
    world.firmware.Send(MPM_ZEL_CMD_KVM_DATA, "a picture");
    world.Until([&] { return viewer.Received() == "a picture" || viewer.IsClosed(); });
    world.firmware.Send(MPM_ZEL_CMD_VNC_SOC_CLOSE);
    world.UntilLogged(kViewerGone);
    world.Until([&] { return viewer.IsClosed(); });
    // The agent is made to leave.
    world.UntilLogged(kAgentRemoved, 2);
}

// ---- the screen ----

std::string ConfigOfAgent() {
    const ZEL_ServiceToKVMApp_pipe record{eNotifyDisplayConfig, 1920, 1080, 0};
    return {reinterpret_cast<const char*>(&record), sizeof record};
}

void SettledWithDisplayAgent(World& world) {
    SettledWithAgent(world);
    world.NewProgram(kAgentPipeName, PipeProgram::Reports(ConfigOfAgent()));
}

void Display(World& world) {
    Wire& viewer = world.NewWire();
    world.firmware.Send(MPM_ZEL_CMD_GET_DISPAY_CONFIG);
    world.Until([&] { return world.firmware.Count("WriteDisplayConfig") >= 1; });
    world.UntilLogged(kScreenReady);
    EnterKvmSession(world, viewer);
    for (size_t chunk = 1; chunk <= 2; ++chunk) {
        world.firmware.Send(MPM_ZEL_CMD_GET_ENCODED_FRAMEBUFFER);
        world.Until([&] { return world.firmware.Count("WriteEncodedBuffer") >= chunk; });
    }
    world.firmware.Send(MPM_ZEL_CMD_VNC_SOC_CLOSE);
    // The end of a session waits for an agent whose message was not read; only the stop ends that.
    world.Until([&] { return viewer.IsClosed(); }, World::Seconds(40));
    if (!viewer.IsClosed()) return;
    world.UntilLogged(kViewerGone);
    world.UntilLogged(kAgentRemoved, 2);
}

// ---- the person at the PC ----

void Consent(World& world) {
    const PipeProgram program(kConsentPipeName, PipeProgram::Answers("Consent_yes"));
    world.firmware.Send(MPM_ZEL_CMD_GET_KVM_CONSENT, mpm::Bytes::Of(UserConsentQuestion{1, 30}));
    world.Until([&] { return world.firmware.Count("WriteUserConsent") >= 1; });
    world.Settle();
}

// ---- the PC ----

void SuspendAndResume(World& world) {
    world.Control(SERVICE_CONTROL_POWEREVENT, PBT_APMSUSPEND);
    world.firmware.Clear();
    world.Control(SERVICE_CONTROL_POWEREVENT, PBT_APMRESUMEAUTOMATIC);
    world.Until([&] { return world.firmware.Count("WriteMultiNwInfo") >= 1; });
    world.Settle();
}

void Move(const char* address) {
    World::Pc().Change([=](auto& description) { description.adapters->front().address = address; });
}

void NetworkChange(World& world) {
    world.firmware.Clear();
    Move("192.168.1.77");
    world.OnThreadOfWindows([] {
        winhost::WlanService::Instance().Notify(
            {.code = wlan_notification_acm_connection_complete, .data = ""});
    });
    world.Until([&] { return world.firmware.Count("WriteMultiNwInfo") >= 1; });
    world.Settle();
    // The addresses stay, and the Wi-Fi profile alone is new.
    world.OnThreadOfWindows([] { winhost::JoinNetwork(0, "office"); });
    world.Until([&] { return world.firmware.Count("WriteWiFiSyncInfo") >= 1; }, World::Seconds(10));
    world.Settle();
    // Found by the scan alone.
    Move("192.168.1.78");
    world.UntilLogged(kScanned);
    world.Settle();
}

// ---- the cloud ----

// Each attempt to connect fails at once.
void SettledWithCloud(World& world) {
    world.firmware.Change([](mpm::Settings& settings) {
        settings.Cloud.Hostname = "cloud.example.com";
        settings.Cloud.Port = 4433;
        settings.Cloud.vCloudCert = settings.Cloud.vCloudKey = settings.Cloud.vCloudCACert = "text";
        settings.Domains = "corp.example.com";
    });
    World::Pc().Change([](auto& pc) {
        const auto program = std::filesystem::read_symlink("/proc/self/exe");
        pc.libraryFolders = {(program.parent_path() / "scriptednuba").string()};
    });
    world.LaunchAndSettle();
    world.UntilLogged(kCloudRuns);
}

void CloudAfterS0i3(World& world) {
    world.firmware.Send(MPM_ZEL_CMD_S0i3_RESUME);
    world.UntilLogged(kCloudRuns, 2);
    world.Settle();
}

// ---- the packaged service ----

std::string RecordOfReader() {
    WiFiSyncInfo record{};
    record.size_of_this_structure = sizeof record;
    record.is_valid = 1;
    std::strcpy(record.ssid, "office");
    record.wpaauth = WpaAuth::Wpa2Personal;
    std::strcpy(record.key_material, "secret key");
    return {reinterpret_cast<const char*>(&record), sizeof record};
}

// Its Wi-Fi is not connected yet.
void SettledWithReader(World& world) {
    world.InstallPackage();
    world.InstallReader(RecordOfReader());
    World::Pc().Change([](auto& pc) { pc.wlanInterfaces.front().state = wlan_interface_state_disconnected; });
    world.LaunchAndSettle();
}

void SyncThroughReader(World& world) {
    world.OnThreadOfWindows([] { winhost::JoinNetwork(0, "office"); });
    // A program whose record is not read is waited for.
    world.Until([&] { return world.firmware.Count("WriteWiFiSyncInfo") >= 1; }, World::Seconds(30));
    world.Settle();
}

// ---- the filter driver ----

// A laptop on a wireless network, for which the service turns the filter driver on.
void SettledWithFilterDriver(World& world) {
    driverpc::WritePowerShell("exit 0");
    World::Pc().Change([](auto& pc) {
        pc.modernStandby = true;
        pc.adapters->resize(1);
        pc.adapters->front().type = kWirelessType;
        pc.services = {driverpc::Driver()};
        pc.services.front().startType = SERVICE_DISABLED;
    });
    world.LaunchAndSettle();
    world.UntilLogged("Filter driver enable successfully");
    world.Settle();
}

void PlugCable(World& world, bool plugged) {
    World::Pc().Change([=](auto& pc) { pc.adapters->front().type = plugged ? kWiredType : kWirelessType; });
    world.OnThreadOfWindows([=] {
        // The WLAN service holds back a notification that equals its last one.
        winhost::WlanService::Instance().Notify(
            {.code = plugged ? wlan_notification_acm_connection_complete : wlan_notification_acm_disconnected,
             .data = ""});
    });
    if (plugged) {
        world.UntilLogged("Filter driver disable successfully");
    } else {
        world.UntilLogged("Filter driver enable successfully", 2);
    }
    world.Settle();
}

void CableAndBack(World& world) {
    PlugCable(world, true);
    PlugCable(world, false);
}

void InSessions(World& world) {
    SettledWithAgent(world);
    Wire& console = world.NewWire();
    Wire& viewer = world.NewWire();
    EnterKvmSession(world, viewer);
    ConnectConsole(world, console);
    world.UntilLogged(kSession);
    world.Settle();
}

}  // namespace

const std::vector<Scenario>& Scenarios() {
    static const std::vector<Scenario> scenarios = {
        {"start", "the process from its first call until it reads from the firmware", HoldFirstUpdate, Start},
        {"packaged", "the start of a service that runs from a package", HoldFirstUpdateOfPackage, Start},
        {"packaged-stop", "the stop of such a service", SettledPackage, Nothing, true},
        {"update", "the first report to the firmware, until the service listens for consoles",
         BeforeFirstUpdate, FirstUpdate},
        {"dash", "two consoles, one after the other; the second one stays idle", Settled, Dash},
        {"kvm", "remote KVM from the enable command to the end of its agent, bytes in both directions",
         SettledWithAgent, Kvm},
        {"display", "a session with the PC's own screen, from the agent's report to its end, with two frames",
         SettledWithDisplayAgent, Display, false, true},
        {"consent", "a question to the person at the PC, and the answer", Settled, Consent},
        {"enrolment", "a request of the firmware for a certificate, whose root is found",
         errands::SettledWithStores, errands::Enrolment},
        {"password", "the password of the service account is changed in the directory",
         errands::SettledWithDirectory, errands::Password},
        {"alert", "the firmware names a console and sends it an alert", Settled, errands::Alert},
        {"upgrade", "the firmware orders a software upgrade", errands::SettledWithUpgrade, errands::Upgrade},
        {"power", "a console reboots the PC, hibernates it, and shuts it down", Settled, Power},
        {"suspend", "the PC sleeps and wakes", Settled, SuspendAndResume},
        {"network", "addresses change, reported by Windows and found by a scan, and a network is joined",
         Settled, NetworkChange},
        {"cloud", "the client ends and starts again after S0i3, with new data of the firmware",
         SettledWithCloud, CloudAfterS0i3},
        {"reader", "a packaged service gets the Wi-Fi profile from its helper program", SettledWithReader,
         SyncThroughReader},
        {"driver", "the filter driver is turned off for a cable, and on again without it",
         SettledWithFilterDriver, CableAndBack},
        {"stop", "the stop of a service with a console and a viewer", InSessions, Nothing, true},
    };
    return scenarios;
}
