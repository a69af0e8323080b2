// The question in a terminal: whoever sits there types yes or no before the time is over.
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
    // Nothing when the time has passed without an answer. What was typed before the question doesn't count.
    std::optional<bool> Ask(const Question& question);

  private:
    // Shared with the thread that reads the lines, which blocks there until the process ends.
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
