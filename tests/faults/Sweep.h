// All runs of a scenario: the first of its calls fails, the second, and so on.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>

#include "tests/faults/Runner.h"
#include "tests/faults/World.h"

struct SweepOptions {
    bool quick = false;  // each place that calls once, not each call
    bool once = true, forEver = true;
    uint64_t from = 1, to = UINT64_MAX;
    Selection only;  // one single run, when it selects something
    bool verbose = false;
    std::string command;  // in the line that says how to run a finding again
};

class Sweep {
  public:
    Sweep(Runner& runner, const SweepOptions& options) : m_runner(runner), m_options(options) {}

    void Run(const Scenario& scenario);
    void PrintTotals() const;
    bool HasFindings() const { return m_findings > 0; }

  private:
    // What runs without a failure have in common, and the places that call.
    struct Known {
        Reference reference;
        std::map<uint64_t, std::string> sites;
        uint64_t calls = 0;
    };
    struct Count {
        uint64_t runs = 0, injected = 0, ended = 0, findings = 0;
    };

    Known Learn(const Scenario& scenario);
    void RunOne(const Scenario& scenario, const Known& known, const Selection& selection);
    void RunEachSite(const Scenario& scenario, const Known& known, bool forEver);
    void RunEachCall(const Scenario& scenario, const Known& known, bool forEver);
    void Report(const Scenario& scenario, const Selection& selection, const Account& account,
                const Outcome& outcome);
    void PrintFinding(const Scenario& scenario, const Selection& selection, const Account& account,
                      const Outcome& outcome);

    Runner& m_runner;
    const SweepOptions m_options;
    std::map<std::string, Count> m_byScenario, m_byCall;
    uint64_t m_findings = 0;
    uint64_t m_uninjected = 0;  // runs in a row that were over before their call came
};
