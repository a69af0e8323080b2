#include "tests/faults/World.h"

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <utility>

#include "base/ZELLogger.h"
#include "tests/faults/Stacks.h"
#include "tests/faults/Watch.h"
#include "tests/support/scripted/Library.h"
#include "winhost/core/HandleTable.h"
#include "winhost/service/Scm.h"

namespace {

using namespace std::chrono_literals;

constexpr char kLogPath[] = "C:\\ProgramData\\Tarvix\\Manageability\\zel.log";
constexpr char kBin[] = "C:\\Program Files\\Tarvix\\Service\\bin\\";
constexpr char kPackage[] = R"(C:\Program Files\WindowsApps\Tarvix.ZEL)";
constexpr char kReader[] = R"(\WiFiSyncDataReader\WiFiSyncDataReader.exe)";
constexpr char kListening[] = "Calling HTTPS Socket Accept";
constexpr char kStarted[] = "Register: ZEL Win32 Service started and initialized successfully";

// The service has nothing to do when it has been seen to make no call, and no thread at work, so many times.
constexpr int kQuietLooks = 3;
constexpr auto kLook = 1ms;
constexpr auto kPoll = 50ms;  // at most, of a thread that polls
// And nothing will ever happen when nothing waits for time to pass either.
constexpr int kDeadLooks = 150;
// One that does not come to rest in so much of the processors' time works on and on.
constexpr auto kRestless = 4s;

std::chrono::nanoseconds ProcessorTime() {
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

constexpr DWORD kEndMilliseconds = 3000;

}  // namespace

World::World(const Scenario& scenario, const Selection& selection, Account& account)
    : m_scenario(scenario), m_selection(selection), m_account(account) {}

void World::Describe(winhost::PcDescription& description) {
    ServiceFixture::Describe(description);
    winhost::Adapter wireless;
    wireless.name = "{70A9067B-708F-443C-84BA-BC391FDBF72B}";
    wireless.description = "Wi-Fi adapter";
    wireless.index = 2;
    wireless.type = 71;
    wireless.mac = "00:11:22:33:44:66";
    wireless.address = "192.168.2.10";
    wireless.mask = "255.255.255.0";
    description.adapters->push_back(wireless);
    description.wlanInterfaces = {{wireless.name, "Wi-Fi", 1, "home"}};
    winhost::WlanNetwork home, office;
    home.name = "home";
    office.name = "office";
    office.authentication = "WPA3SAE";
    description.wlanNetworks = {home, office};
    description.dnsDomain = "example.net";
    if (m_scenario.hasRuntime) description.libraryFolders = {ScriptedLibrary::Folder()};
}

// ---- the service's process ----

// What the program does, in its order.
void World::RunProcess() {
    service = std::make_unique<ZELService>("");
    char program[] = "ZELService.exe", argument[] = "-service";
    char* argv[] = {program, argument, nullptr};
    service->Main(2, argv);
    m_mainOver = true;
    m_threadsHang = !service->EndThreads(kEndMilliseconds);
    if (m_threadsHang && !Follows(FailureEntry::Effect::HoldsThreads)) PrintStacks();
    if (ZELLogger* const logger = ZELLogger::Instance()) logger->CloseLog();
    if (!m_threadsHang) service.reset();
    m_processOver = true;
}

Wire& World::NewWire() {
    return m_wires.emplace_back();
}

void World::NewProgram(const char* pipe, PipeProgram::Talk talk) {
    m_programs.emplace_back(pipe, std::move(talk));
}

void World::Launch() {
    m_process = std::thread([this] { RunProcess(); });
    auto& scm = winhost::Scm::Instance();
    Expect(Until([&] {
               return m_mainOver || scm.State() == SERVICE_STOPPED ||
                      (scm.State() == SERVICE_RUNNING && CountInLog(kStarted) > 0);
           }),
           "the service starts");
}

void World::LaunchAndSettle() {
    Launch();
    Expect(UntilLogged(kListening), "the service listens");
    Settle();
}

void World::InstallProgram(const char* name, const char* lines) {
    const std::filesystem::path path = HostPath(std::string(kBin) + name);
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path) << "#!/bin/sh\n" << lines << "\n";
    std::filesystem::permissions(path, std::filesystem::perms::owner_all);
}

void World::InstallAgent() {
    InstallProgram("ZELKVMApp.exe", "exec sleep 1000");
}

void World::InstallPackage() {
    Pc().Change([&](winhost::PcDescription& pc) {
        pc.package = {"Tarvix.ZEL_1.0.0.0_x64__8wekyb3d8bbwe", kPackage, "Tarvix.ZEL_8wekyb3d8bbwe"};
    });
    for (const char* name : {R"(\KVM_Agent\ZELKVMApp.exe)", kReader, R"(\scripts\ZELUninstallCleanup.ps1)",
                             R"(\scripts\ConfigureRecoveryEnvironmentSupport.ps1)"}) {
        const std::filesystem::path path = HostPath(std::string(kPackage) + name);
        std::filesystem::create_directories(path.parent_path());
        // The programs run, and leave without a connection.
        std::ofstream(path) << "#!/bin/sh\n";
        std::filesystem::permissions(path, std::filesystem::perms::owner_all);
    }
    const std::filesystem::path system = HostPath(R"(C:\Windows\System32)");
    std::filesystem::create_directories(system);
    std::filesystem::create_symlink("/bin/false", system / "schtasks.exe");
    std::filesystem::create_symlink("/bin/true", system / "powershell.exe");
}

void World::InstallReader(std::string record) {
    m_reader.emplace(std::string(kPackage) + kReader, std::move(record));
}

void World::OnThreadOfWindows(const std::function<void()>& act) {
    std::atomic<bool> over{false};
    std::thread thread([&] {
        act();
        over = true;
    });
    if (!Until([&] { return over.load(); }, kEnd)) {
        Find("a Windows callback into the service does not return");
        PrintStacks();
        m_account.end = Account::End::Failed;
        Finish();
    }
    thread.join();
}

void World::Control(uint32_t control, uint32_t eventType) {
    OnThreadOfWindows([=] { winhost::Scm::Instance().Control(control, eventType); });
}

// ---- time ----

bool World::Until(const std::function<bool()>& holds, Seconds patience) {
    winhost::Clock& clock = Clock();
    const auto deadline = clock.Steady() + patience;
    auto rest = ProcessorTime();
    Watch watch;
    winhost::Clock::Duration step{};
    while (!holds()) {
        std::this_thread::sleep_for(kLook);
        const int quiet = watch.Look();
        const auto now = ProcessorTime();
        if (quiet > 0) rest = now;
        if (now - rest > kRestless) return holds();
        if (quiet < kQuietLooks) continue;
        const auto next = clock.NextDeadline();
        if (next == winhost::Clock::kNever) {
            if (quiet > kDeadLooks) return holds();
            continue;
        }
        if (next > deadline) return holds();
        // Where the next to wake is one that polls, time passes faster and faster.
        const auto ahead = next - clock.Steady();
        step = ahead > kPoll ? ahead : std::max(ahead, 2 * step);
        Advance(step);
        watch = {};
    }
    return true;
}

bool World::UntilLogged(const std::string& text, size_t count) {
    return Until([&] { return CountInLog(text) >= count; });
}

void World::Settle() {
    const auto deadline = ProcessorTime() + kRestless;
    for (Watch watch; watch.Look() < kQuietLooks && ProcessorTime() < deadline;)
        std::this_thread::sleep_for(kLook);
}

// ---- the log ----

std::string World::LogText() {
    std::ifstream stream(HostPath(kLogPath), std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

size_t World::CountInLog(const std::string& text) {
    const std::string log = LogText();
    size_t count = 0;
    for (size_t at = log.find(text); at != std::string::npos; at = log.find(text, at + 1))
        ++count;
    return count;
}

// ---- a run ----

void World::Play() {
    PcFixture::SetUp();
    m_handlesBefore = winhost::HandleTable::Instance().Size();
    Injector::Instance().Arm({}, m_account);
    m_scenario.prepare(*this);
    Injector::Instance().Arm(m_selection, m_account);
    m_scenario.act(*this);
    Settle();
    if (!m_scenario.failsInStop) Injector::Instance().StopCounting();
    Stop();
}

void World::Stop() {
    firmware.ClearFaults();
    if (!m_mainOver) StopByManager();
    // The dispatcher of a service whose last report is lost waits for it, until the service manager has had
    // enough and ends the process.
    m_isDeaf = !Until([this] { return m_processOver.load(); }, kEnd) && !m_mainOver &&
               Follows(FailureEntry::Effect::Unstoppable);
    if (m_isDeaf || m_processOver) return;
    Find("the process does not end");
    PrintStacks();
}

// One that did not receive the service's start is made to deliver the stop all the same.
void World::StopByManager() {
    OnThreadOfWindows([this] {
        auto& scm = winhost::Scm::Instance();
        m_stopDelivered =
            scm.Control(SERVICE_CONTROL_STOP) == NO_ERROR ||
            scm.Control(SERVICE_CONTROL_STOP, 0, nullptr, winhost::Scm::Delivery::Forced) == NO_ERROR;
    });
}

bool World::Follows(FailureEntry::Effect effect) const {
    const FailureEntry* const entry = FindFailure(m_account.call);
    return entry && entry->effect == effect;
}
