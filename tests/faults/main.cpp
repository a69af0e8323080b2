// Takes the service through its scenarios again and again while one call of the platform fails.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include "tests/faults/Scenarios.h"
#include "tests/faults/Sweep.h"

// A report of a sanitizer ends the run. Threads that are left are looked at by the run itself: some failures
// leave one to end with the process.
extern "C" const char* __asan_default_options() {
    return "detect_leaks=1:exitcode=77:abort_on_error=0";
}
extern "C" const char* __tsan_default_options() {
    return "halt_on_error=1:atexit_sleep_ms=0:report_thread_leaks=0";
}

namespace {

struct Arguments {
    SweepOptions sweep;
    std::vector<std::string> scenarios;
    size_t width = std::max(1u, std::thread::hardware_concurrency());
    unsigned patience = 60;
    bool list = false;
};

// 0 to go on, else the exit code and one.
int Parse(int argc, char** argv, Arguments& arguments) {
    CLI::App app{"Runs the service through its scenarios while one platform call fails."};
    SweepOptions& sweep = arguments.sweep;
    bool once = false, forEver = false;
    std::string site;
    app.add_option("scenario", arguments.scenarios, "the scenarios to run; default: all");
    app.add_flag("--list", arguments.list, "print the names of the scenarios");
    app.add_flag("--quick", sweep.quick, "fail only the first call from each place in the code");
    app.add_flag("--once", once, "only single failures");
    app.add_flag("--for-ever", forEver, "only permanent failures");
    app.add_flag("--every-line", sweep.only.everyLine, "fail the log's own calls in every line too");
    app.add_option("--from", sweep.from, "begin with this call");
    app.add_option("--to", sweep.to, "end with this call");
    app.add_option("--at", sweep.only.at, "do one run, in which this call fails");
    app.add_option("--site", site, "with --at: count only the calls from this place");
    app.add_option("--error", sweep.only.error, "with --at: fail with this error");
    app.add_option("-j", arguments.width, "number of parallel runs")->check(CLI::Range(1, 64))->take_last();
    app.add_option("--patience", arguments.patience, "seconds until a run counts as hung");
    app.add_flag("-v,--verbose", sweep.verbose, "print each run");
    app.add_option("--shown-as", sweep.command, "the program name in the command that repeats a finding");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return 1 + app.exit(error);
    }
    if (once != forEver) {
        sweep.once = once;
        sweep.forEver = forEver;
    }
    sweep.only.forEver = forEver;
    if (!site.empty()) sweep.only.site = std::stoull(site, nullptr, 16);
    if (sweep.only.site && !sweep.only.at) sweep.only.at = 1;
    if (sweep.only.at) sweep.verbose = true;
    return 0;
}

const Scenario* FindScenario(const std::string& name) {
    for (const Scenario& scenario : Scenarios())
        if (scenario.name == name) return &scenario;
    return nullptr;
}

}  // namespace

int main(int argc, char** argv) {
    Arguments arguments;
    if (const int exit = Parse(argc, argv, arguments)) return exit - 1;
    std::vector<const Scenario*> scenarios;
    for (const std::string& name : arguments.scenarios) {
        scenarios.push_back(FindScenario(name));
        if (!scenarios.back()) {
            std::cerr << "unknown scenario '" << name << "'; --list prints the names\n";
            return 2;
        }
    }
    if (scenarios.empty())
        for (const Scenario& scenario : Scenarios())
            scenarios.push_back(&scenario);
    if (arguments.list) {
        for (const Scenario* scenario : scenarios)
            std::printf("%-10s %s\n", scenario->name, scenario->about);
        return 0;
    }
    if (arguments.sweep.command.empty()) arguments.sweep.command = argv[0];
    const auto start = std::chrono::steady_clock::now();
    Runner runner(arguments.width, std::chrono::seconds(arguments.patience));
    Sweep sweep(runner, arguments.sweep);
    for (const Scenario* scenario : scenarios)
        sweep.Run(*scenario);
    sweep.PrintTotals();
    const auto seconds =
        std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - start);
    std::printf("%lld seconds\n", static_cast<long long>(seconds.count()));
    return sweep.HasFindings() ? 1 : 0;
}
