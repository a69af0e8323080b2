// Runs in processes of their own, several at a time: one that crashes or hangs is a finding and no more.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tests/faults/Injector.h"

struct Outcome {
    Account::End end = Account::End::Failed;
    std::string finding;  // of a failed run; with what it printed
    std::string output;
};

class Runner {
  public:
    // So many runs at a time. One that is not over after `patience`, in real time, hangs.
    Runner(size_t width, std::chrono::seconds patience);
    ~Runner();
    Runner(const Runner&) = delete;
    Runner& operator=(const Runner&) = delete;

    using Body = std::function<void(Account&)>;  // in the run's process; does not return
    // Called in this process when the run is over.
    using Report = std::function<void(const Account&, const Outcome&)>;

    // Waits until there is room, then starts the run.
    void Start(Body body, Report report);
    // Until all runs are over.
    void Finish();

  private:
    struct Run;

    bool ReapOne();
    void Watch(Run& run);
    Outcome Judge(const Run& run, int status) const;

    const size_t m_width;
    const std::chrono::seconds m_patience;
    std::vector<std::unique_ptr<Run>> m_runs;
    std::vector<Account*> m_spareAccounts;
};
