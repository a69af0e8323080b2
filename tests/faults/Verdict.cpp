// What is looked at when a run is over, and how the process of a run ends.
#include <gtest/gtest-spi.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <chrono>
#include <fstream>
#include <thread>

#include "tests/faults/Terminate.h"
#include "tests/faults/World.h"
#include "winhost/core/HandleTable.h"
#include "winhost/service/Scm.h"
#include "winhost/wmi/ComObject.h"

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif

namespace {

constexpr std::chrono::milliseconds kLastMoment{2000};
constexpr char kStopped[] = "Gracefully exitting ZEL Service. Close Log File.";

// Each number, also a hexadecimal one, becomes a "#".
std::string WithoutNumbers(const std::string& text) {
    std::string line;
    for (size_t at = 0; at < text.size();) {
        size_t end = at;
        bool number = false;
        for (; end < text.size() && std::isxdigit(static_cast<unsigned char>(text[end])); ++end)
            number |= std::isdigit(static_cast<unsigned char>(text[end])) != 0;
        if (end == at) {
            line += text[at++];
        } else {
            line += number ? "#" : text.substr(at, end - at);
            at = end;
        }
    }
    return line;
}

bool SpeaksOfFailure(std::string line) {
    if (line.starts_with("ERROR") || line.starts_with("WARN")) return true;
    std::transform(line.begin(), line.end(), line.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    for (const char* word : {"fail", "error", "invalid", "exception", "empty", "null", "unable"})
        if (line.find(word) != std::string::npos) return true;
    return false;
}

}  // namespace

void Reference::Merge(const Reference& other) {
    handles = std::max(handles, other.handles);
    for (const auto& [line, count] : other.lines)
        lines[line] = std::max(lines[line], count);
}

void Reference::Save(const std::string& path) const {
    std::ofstream file(path);
    file << handles << '\n';
    for (const auto& [line, count] : lines)
        file << count << ' ' << line << '\n';
}

Reference Reference::Load(const std::string& path) {
    Reference reference;
    std::ifstream file(path);
    file >> reference.handles;
    size_t count = 0;
    std::string line;
    while (file >> count && file.get() && std::getline(file, line))
        reference.lines[line] = count;
    return reference;
}

// The log's, and what the service reported by other ways.
std::map<std::string, size_t> World::Lines() {
    std::vector<std::string> texts;
    for (const auto& debugged : Pc().Records<winhost::DebugText>())
        texts.push_back(debugged.text);
    for (const auto& entry : Pc().Records<winhost::EventLogEntry>())
        texts.insert(texts.end(), entry.strings.begin(), entry.strings.end());
    for (const LogLine& line : Log()) {
        if (line.level.empty()) Find("malformed line in the log: " + line.text);
        texts.push_back(line.level + " " + line.message);
    }
    std::map<std::string, size_t> lines;
    for (const std::string& text : texts)
        ++lines[WithoutNumbers(text)];
    return lines;
}

void World::Find(const std::string& finding) {
    m_findings += "  " + finding + "\n";
}

void World::Expect(bool success, const std::string& step) {
    if (!success && m_account.injected == 0)
        Find("without an injected failure this step did not happen: " + step);
}

void World::CheckEnd(const Reference& reference) {
    if (m_account.unknown[0] != '\0')
        Find(std::string("FailureTable.cpp has no entry for ") + m_account.unknown);
    CheckLog(reference);
    if (m_isDeaf) return;
    if (m_threadsHang && Follows(FailureEntry::Effect::HoldsThreads)) return;
    if (m_threadsHang) Find("threads of the service hang when the process ends");
    if (winhost::LiveComObjects() != 0) Find("COM objects are not released");
    if (winhost::StaleComUses() != 0) Find("COM objects were used after CoUninitialize");
    auto& table = winhost::HandleTable::Instance();
    const auto left = [&] { return table.Size() - m_handlesBefore; };
    // What stays open stays for good.
    if (Follows(FailureEntry::Effect::StaysOpen)) return;
    // A thread that nothing waits for releases its last event a moment after the end.
    if (!Eventually([&] { return left() <= reference.handles; }, kLastMoment)) {
        std::string kinds;
        for (const std::string& kind : table.Kinds())
            kinds += ' ' + kind;
        Find("handles are left open: " + std::to_string(left() - reference.handles) +
             " more than without a failure, of" + kinds);
    }
}

// A failure has to be logged, and a service that was stopped has to say so.
void World::CheckLog(const Reference& reference) {
    const FailureEntry* const entry = FindFailure(m_account.call);
    const auto lines = Lines();
    const auto names = [&](const auto& line) {
        const auto known = reference.lines.find(line.first);
        return SpeaksOfFailure(line.first) && (known == reference.lines.end() || known->second < line.second);
    };
    if (m_account.injected > 0 && entry &&
        !MayBeSilent(*entry, m_account.error, DescribeSite(m_account.site), m_scenario.name) &&
        std::none_of(lines.begin(), lines.end(), names))
        Find("the log does not report the failure");
    const auto state = winhost::Scm::Instance().State();
    // A resume that can't start its thread ends the process by way of its main function.
    const bool ended =
        std::string_view(m_account.call) == "std::thread" && CountInLog("Exception: In main") != 0;
    if (state != SERVICE_STOPPED && !ended && !Follows(FailureEntry::Effect::Unstoppable))
        Find("the service's last state is " + std::to_string(state));
    if (state == SERVICE_STOPPED && m_stopDelivered && CountInLog(kStopped) == 0 &&
        CountInLog("Logging started") != 0)
        Find("the stop did not complete");
}

void World::Finish() {
    if (m_processOver) {
        m_process.join();
    } else if (m_process.joinable()) {
        m_process.detach();
    }
    m_account.end = m_findings.empty() ? Account::End::Passed : Account::End::Failed;
    std::snprintf(m_account.finding, sizeof m_account.finding, "%s", m_findings.c_str());
    std::fflush(nullptr);
#ifdef __SANITIZE_ADDRESS__
    if (!m_isDeaf && !m_threadsHang && !Follows(FailureEntry::Effect::StaysOpen) &&
        __lsan_do_recoverable_leak_check() != 0) {
        m_account.end = Account::End::Failed;
        std::snprintf(m_account.finding, sizeof m_account.finding, "%s  memory leaks\n", m_findings.c_str());
    }
#endif
    // Not by exit: what the service's process would do at its end has been done.
    _exit(0);
}

void World::Run(const Scenario& scenario, const Selection& selection, const Reference& reference,
                Account& account) {
    ExpectSpecifiedEnds(account);
    const OutsideService outside;
    World& world = *new World(scenario, selection, account);
    testing::TestPartResultArray failures;
    const testing::ScopedFakeTestPartResultReporter reporter(
        testing::ScopedFakeTestPartResultReporter::INTERCEPT_ALL_THREADS, &failures);
    world.Play();
    world.CheckEnd(reference);
    for (int i = 0; i < failures.size(); ++i)
        world.Find(failures.GetTestPartResult(i).message());
    world.Finish();
}

void World::Learn(const Scenario& scenario, const std::string& path, Account& account) {
    const OutsideService outside;
    World& world = *new World(scenario, {}, account);
    world.Play();
    Reference reference;
    reference.lines = world.Lines();
    std::this_thread::sleep_for(kLastMoment / 10);
    reference.handles = winhost::HandleTable::Instance().Size() - world.m_handlesBefore;
    reference.Save(path);
    world.Finish();
}
