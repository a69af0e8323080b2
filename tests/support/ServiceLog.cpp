#include "tests/support/ServiceLog.h"

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string_view>
#include <utility>

namespace {

constexpr std::pair<std::string_view, const char*> kLevels[] = {
    {"INFO:  ", "INFO"}, {"WARN:  ", "WARN"}, {"ERROR: ", "ERROR"}};
constexpr std::string_view kTag = " $$<ZELService> <";
constexpr std::string_view kThread = "> <thread = ";

// Behind "[pid]-[ MiB M ] "; 0 when the line doesn't begin so.
size_t PrefixSize(const std::string& text) {
    int size = 0;
    std::sscanf(text.c_str(), "[%*u]-[ %*u M ] %n", &size);
    return static_cast<size_t>(size);
}

// The number twice, to the end of the line. False when it isn't so.
bool ParseThread(const char* text, uint32_t& thread) {
    uint32_t hexadecimal = 0;
    int size = 0;
    return std::sscanf(text, "%u (0x%x)>%n", &thread, &hexadecimal, &size) == 2 && size > 0 &&
           text[size] == '\0' && thread == hexadecimal;
}

}  // namespace

// By hand: tests read the whole log again and again while they wait for a line.
LogLine ParseLogLine(const std::string& text) {
    LogLine line;
    line.text = text;
    const size_t prefix = PrefixSize(text);
    const size_t threadAt = text.rfind(kThread);
    const size_t tagAt = text.rfind(kTag, threadAt);
    if (prefix == 0 || threadAt == std::string::npos || tagAt == std::string::npos ||
        !ParseThread(text.c_str() + threadAt + kThread.size(), line.thread)) {
        return line;
    }
    for (const auto& [mark, level] : kLevels) {
        if (text.compare(prefix, mark.size(), mark) != 0 || prefix + mark.size() > tagAt) continue;
        line.level = level;
        line.message = text.substr(prefix + mark.size(), tagAt - prefix - mark.size());
    }
    return line;
}

std::vector<LogLine> ReadLog(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    const std::string content{std::istreambuf_iterator<char>(stream), {}};
    std::vector<LogLine> lines;
    size_t start = 0;
    for (size_t end; (end = content.find('\n', start)) != std::string::npos; start = end + 1)
        lines.push_back(ParseLogLine(content.substr(start, end - start)));
    return lines;
}
