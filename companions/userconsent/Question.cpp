#include "companions/userconsent/Question.h"

#include <algorithm>
#include <charconv>
#include <sstream>

namespace {

constexpr uint32_t kLongest = 90;  // seconds

bool ParseNumber(const std::string& line, uint32_t& number) {
    const char* const end = line.data() + line.size();
    const auto parsed = std::from_chars(line.data(), end, number);
    return parsed.ec == std::errc() && parsed.ptr == end;
}

}  // namespace

std::chrono::seconds Question::Limit() const {
    return std::chrono::seconds(std::min(timeout, kLongest));
}

std::optional<Question> ParseQuestion(const std::string& text) {
    std::istringstream lines(text.substr(0, text.find('\0')));
    std::string mark, type, timeout, more;
    std::getline(lines, mark);
    std::getline(lines, type);
    std::getline(lines, timeout);
    Question question;
    if (mark != "yes" || std::getline(lines, more)) return {};
    if (!ParseNumber(type, question.type) || !ParseNumber(timeout, question.timeout)) return {};
    return question;
}
