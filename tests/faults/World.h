// A PC with the service as a process of its own: from the construction of its object to its destruction, the
// service manager in between. Time passes as soon as the service has nothing to do but wait for it.
#pragma once

#include <atomic>
#include <chrono>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <thread>

#include "tests/faults/FailureTable.h"
#include "tests/faults/Injector.h"
#include "tests/faults/PipeProgram.h"
#include "tests/faults/ReaderProgram.h"
#include "tests/faults/Wire.h"
#include "tests/support/ServiceFixture.h"

class World;

struct Scenario {
    const char* name;
    const char* about;
    void (*prepare)(World&);  // what comes before the calls that are made to fail
    void (*act)(World&);
    bool failsInStop = false;  // the calls of the stop that follows are made to fail too
    bool hasRuntime = false;   // the PC has a media runtime, the scripted one
};

// What every run must have in common with those in which nothing fails.
struct Reference {
    std::map<std::string, size_t> lines;  // of the log, their numbers left out, and how often each came
    size_t handles = 0;                   // that outlive the service

    void Merge(const Reference& other);
    void Save(const std::string& path) const;
    static Reference Load(const std::string& path);
};

class World : private ServiceFixture {
  public:
    using Seconds = std::chrono::seconds;
    // How long a step may take on the PC's clock: whatever the service repeats, it has repeated often.
    static constexpr Seconds kStep{200};
    // And the process, from its stop to its end.
    static constexpr Seconds kEnd{3600};

    // The whole run, after which the process ends. What it finds goes into the account.
    [[noreturn]] static void Run(const Scenario& scenario, const Selection& selection,
                                 const Reference& reference, Account& account);
    // The same with a run in which nothing fails; what it has in common with others goes into the file.
    [[noreturn]] static void Learn(const Scenario& scenario, const std::string& path, Account& account);

    // ---- for scenarios ----

    // Starts the service's process; waits until its start has succeeded or failed.
    void Launch();
    // The same, until the service listens for consoles and has nothing to do.
    void LaunchAndSettle();
    // Lets time pass until this holds. False when it does not come to hold, also when the service does not
    // come to rest.
    bool Until(const std::function<bool()>& holds, Seconds patience = kStep);
    // The same for a text in the log, so many times.
    bool UntilLogged(const std::string& text, size_t count = 1);
    // Until the service has nothing to do but wait for time to pass, or for others.
    void Settle();
    // Has the service manager deliver a control.
    void Control(uint32_t control, uint32_t eventType = 0);
    // Calls of `act` are the service's own, on a thread of Windows.
    void OnThreadOfWindows(const std::function<void()>& act);
    // A program in the service's folder that runs these lines of the shell.
    static void InstallProgram(const char* name, const char* lines);
    // One that stays until it is made to leave.
    static void InstallAgent();
    // Makes the service a packaged one, on a PC with a task scheduler that has no task and a PowerShell that
    // succeeds.
    void InstallPackage();
    // The program of the package that reads the Wi-Fi profile delivers this record.
    void InstallReader(std::string record);
    // A console or a viewer, which lives until the process is gone.
    Wire& NewWire();
    // A program at a pipe of the service, which lives as long.
    void NewProgram(const char* pipe, PipeProgram::Talk talk);
    static uint16_t PortFor(uint16_t port) { return Pc().Description().ports.at(port); }

    using PcFixture::Pc;
    using ServiceFixture::firmware;

  private:
    World(const Scenario& scenario, const Selection& selection, Account& account);
    void TestBody() override {}
    void Describe(winhost::PcDescription& description) override;

    void RunProcess();
    void Play();
    void Stop();
    void StopByManager();
    [[noreturn]] void Finish();
    size_t CountInLog(const std::string& text);
    std::string LogText();

    void CheckEnd(const Reference& reference);
    void CheckLog(const Reference& reference);
    std::map<std::string, size_t> Lines();
    // What the table says of the call that has been made to fail.
    bool Follows(FailureEntry::Effect effect) const;
    void Find(const std::string& finding);
    // Only as long as nothing has been made to fail, a step has to succeed.
    void Expect(bool success, const std::string& step);

    const Scenario& m_scenario;
    const Selection m_selection;
    Account& m_account;
    size_t m_handlesBefore = 0;
    std::thread m_process;
    std::atomic<bool> m_mainOver{false}, m_processOver{false}, m_threadsHang{false};
    bool m_stopDelivered = false;
    bool m_isDeaf = false;  // the service manager could not end the process
    std::string m_findings;
    std::deque<Wire> m_wires;
    std::deque<PipeProgram> m_programs;
    std::optional<ReaderProgram> m_reader;
};
