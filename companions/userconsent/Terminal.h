// Asks the question in a terminal. The user types yes or no before the time limit passes.
#pragma once

#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "base/Handles.h"
#include "companions/userconsent/Question.h"

class Terminal {
  public:
    // Returns no value when the time limit passes without an answer. Lines that were typed before the
    // question are ignored.
    std::optional<bool> Ask(const Question& question);

  private:
    // Shared with the thread that reads the lines. That thread blocks in its read until the process ends.
    struct Lines {
        std::mutex mutex;
        std::deque<std::string> typed;
        UniqueHandle come{CreateEventA(nullptr, FALSE, FALSE, nullptr)};
    };
    static void ReadLines(std::shared_ptr<Lines> lines);
    std::optional<std::string> NextLine();

    std::shared_ptr<Lines> m_lines = std::make_shared<Lines>();
    bool m_reads = false;
};
