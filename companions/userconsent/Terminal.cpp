#include "companions/userconsent/Terminal.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <iostream>
#include <thread>

namespace {

using std::chrono::seconds;
using std::chrono::steady_clock;

constexpr DWORD kPeriod = 200;         // milliseconds between two checks of the time
constexpr long long kEvery = 10;       // seconds between two reminders
constexpr long long kLastSeconds = 5;  // each of the last seconds has its own reminder

std::optional<bool> AnswerIn(std::string line) {
    std::erase_if(line, [](unsigned char c) { return std::isspace(c); });
    std::transform(line.begin(), line.end(), line.begin(), [](unsigned char c) { return std::tolower(c); });
    if (line == "yes" || line == "y") return true;
    if (line == "no" || line == "n") return false;
    return {};
}

}  // namespace

void Terminal::ReadLines(std::shared_ptr<Lines> lines) {
    for (std::string line; std::getline(std::cin, line);) {
        std::lock_guard lock(lines->mutex);
        lines->typed.push_back(line);
        SetEvent(lines->come.Get());
    }
}

std::optional<std::string> Terminal::NextLine() {
    std::lock_guard lock(m_lines->mutex);
    if (m_lines->typed.empty()) return {};
    std::string line = m_lines->typed.front();
    m_lines->typed.pop_front();
    return line;
}

std::optional<bool> Terminal::Ask(const Question& question) {
    if (!m_reads) std::thread(ReadLines, m_lines).detach();
    m_reads = true;
    while (NextLine()) {
    }
    const auto deadline = steady_clock::now() + question.Limit();
    std::printf(
        "An administrator asks to see and control this PC (request type %u).\n"
        "Do you agree? Type yes or no within %lld seconds.\n",
        static_cast<unsigned>(question.type), static_cast<long long>(question.Limit().count()));
    std::fflush(stdout);
    long long lastShown = question.Limit().count();
    while (steady_clock::now() < deadline) {
        WaitForSingleObject(m_lines->come.Get(), kPeriod);
        while (const auto line = NextLine()) {
            if (const auto answer = AnswerIn(*line)) return answer;
            std::printf("Please type yes or no.\n");
        }
        const long long left = std::chrono::ceil<seconds>(deadline - steady_clock::now()).count();
        if (left < lastShown && left > 0 && (left % kEvery == 0 || left <= kLastSeconds))
            std::printf("%lld s left\n", left);
        lastShown = std::min(lastShown, left);
        std::fflush(stdout);
    }
    return {};
}
