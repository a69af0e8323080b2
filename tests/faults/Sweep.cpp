#include "tests/faults/Sweep.h"

#include <unistd.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <filesystem>

namespace {

// Threads take turns in any order, and a run has some calls more than another: the end of a sweep is where
// nothing is left to fail for so many runs in a row.
constexpr uint64_t kRunsPastTheEnd = 4;
constexpr int kReferenceRuns = 2;
constexpr size_t kMostOutput = 20000;

std::string Tail(const std::string& text) {
    return text.size() <= kMostOutput ? text : "...\n" + text.substr(text.size() - kMostOutput);
}

}  // namespace

void Sweep::Run(const Scenario& scenario) {
    const Known known = Learn(scenario);
    std::printf("%s: %s; %" PRIu64 " calls from %zu places\n", scenario.name, scenario.about, known.calls,
                known.sites.size());
    if (m_options.only.at != 0) {
        RunOne(scenario, known, m_options.only);
    } else {
        for (const bool forEver : {false, true}) {
            if (!(forEver ? m_options.forEver : m_options.once)) continue;
            if (m_options.quick) {
                RunEachSite(scenario, known, forEver);
            } else {
                RunEachCall(scenario, known, forEver);
            }
        }
    }
    m_runner.Finish();
}

Sweep::Known Sweep::Learn(const Scenario& scenario) {
    Known known;
    // Sweeps run side by side.
    const std::string file =
        (std::filesystem::temp_directory_path() / "zelservice-faults-reference-").string() +
        std::to_string(getpid()) + '-';
    for (int run = 0; run < kReferenceRuns; ++run) {
        const std::string path = file + std::to_string(run);
        m_runner.Start([&, path](Account& account) { World::Learn(scenario, path, account); },
                       [&, path](const Account& account, const Outcome& outcome) {
                           known.reference.Merge(Reference::Load(path));
                           std::filesystem::remove(path);
                           known.calls = std::max(known.calls, account.counted);
                           const uint64_t recorded = std::min<uint64_t>(account.counted, Account::kMostCalls);
                           for (uint64_t i = 0; i < recorded; ++i)
                               known.sites[account.calls[i].site] = account.calls[i].call;
                           Report(scenario, {}, account, outcome);
                       });
    }
    m_runner.Finish();
    return known;
}

void Sweep::RunEachSite(const Scenario& scenario, const Known& known, bool forEver) {
    for (const auto& [site, call] : known.sites)
        RunOne(scenario, known, {.at = 1, .site = site, .forEver = forEver});
    m_runner.Finish();
}

void Sweep::RunEachCall(const Scenario& scenario, const Known& known, bool forEver) {
    m_uninjected = 0;
    for (uint64_t n = m_options.from; n <= m_options.to && m_uninjected < kRunsPastTheEnd; ++n)
        RunOne(scenario, known, {.at = n, .forEver = forEver, .everyLine = m_options.only.everyLine});
    m_runner.Finish();
}

void Sweep::RunOne(const Scenario& scenario, const Known& known, const Selection& selection) {
    m_runner.Start([&scenario, &known, selection](
                       Account& account) { World::Run(scenario, selection, known.reference, account); },
                   [this, &scenario, selection](const Account& account, const Outcome& outcome) {
                       Report(scenario, selection, account, outcome);
                   });
}

void Sweep::Report(const Scenario& scenario, const Selection& selection, const Account& account,
                   const Outcome& outcome) {
    m_uninjected = account.injected == 0 ? m_uninjected + 1 : 0;
    for (Count* count :
         {&m_byScenario[scenario.name], account.injected ? &m_byCall[account.call] : nullptr}) {
        if (!count) continue;
        ++count->runs;
        count->injected += account.injected;
        count->ended += outcome.end == Account::End::AsSpecified;
        count->findings += outcome.end == Account::End::Failed;
    }
    if (outcome.end == Account::End::Failed) {
        ++m_findings;
        PrintFinding(scenario, selection, account, outcome);
    } else if (m_options.verbose) {
        std::printf("  %" PRIu64 " %s by %s, error %u%s: %s\n%s", account.at, account.call,
                    DescribeSite(account.site).c_str(), account.error,
                    selection.forEver ? ", permanently" : "",
                    outcome.end == Account::End::AsSpecified ? "the process ended, as expected" : "passed",
                    outcome.output.c_str());
    }
    std::fflush(stdout);
}

void Sweep::PrintFinding(const Scenario& scenario, const Selection& selection, const Account& account,
                         const Outcome& outcome) {
    const std::string howLong = std::string(selection.everyLine ? " --every-line" : "") +
                                (selection.forEver ? " --for-ever" : " --once");
    std::printf("FINDING in %s: %s fails%s with %u, called by %s\n%s%s", scenario.name,
                account.injected ? account.call : "no call", selection.forEver ? " permanently" : "",
                account.error, DescribeSite(account.site).c_str(), outcome.finding.c_str(),
                Tail(outcome.output).c_str());
    if (account.injected)
        std::printf("  replay: %s %s --site %#" PRIx64 " --at %" PRIu64 " --error %u%s   or   --at %" PRIu64
                    "%s\n",
                    m_options.command.c_str(), scenario.name, account.site, account.siteHit, account.error,
                    howLong.c_str(), account.at, howLong.c_str());
}

void Sweep::PrintTotals() const {
    std::printf("\n%-28s %8s %9s %9s %9s\n", "", "runs", "faults", "ended *", "findings");
    Count all;
    for (const auto* counts : {&m_byCall, &m_byScenario}) {
        for (const auto& [name, count] : *counts)
            std::printf("%-28s %8" PRIu64 " %9" PRIu64 " %9" PRIu64 " %9" PRIu64 "\n", name.c_str(),
                        count.runs, count.injected, count.ended, count.findings);
        std::printf("\n");
    }
    for (const auto& [name, count] : m_byScenario) {
        all.runs += count.runs;
        all.injected += count.injected;
    }
    std::printf("* the failure ended the process, as expected\n");
    std::printf("%" PRIu64 " runs, %" PRIu64 " faults injected, %" PRIu64 " findings\n", all.runs,
                all.injected, m_findings);
}
