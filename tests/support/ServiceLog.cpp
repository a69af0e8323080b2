#include "tests/support/ServiceLog.h"

#include <fstream>
#include <iterator>
#include <regex>

LogLine ParseLogLine(const std::string& text) {
    static const std::regex form(
        R"(^\[\d+\]-\[ \d+ M \] (?:(INFO):  |(WARN):  |(ERROR): )(.*) \$\$<ZELService> <.*> <thread = (\d+) \(0x[0-9a-f]+\)>$)",
        std::regex::optimize);
    LogLine line;
    line.text = text;
    std::smatch match;
    if (!std::regex_match(text, match, form)) return line;
    line.level = match[1].str() + match[2].str() + match[3].str();
    line.message = match[4];
    line.thread = static_cast<uint32_t>(std::stoul(match[5]));
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
