#include "winhost/process/CommandLine.h"

#include <algorithm>

namespace winhost {
namespace {

constexpr std::string_view kBlanks = " \t";

// Takes an item from the front of the line, up to a blank outside quotes.
std::string Take(std::string_view& line, bool isProgram) {
    std::string item;
    bool quoted = false;
    size_t backslashes = 0;  // at the end of the item, which a quote halves
    for (; !line.empty() && (quoted || kBlanks.find(line.front()) == std::string_view::npos);
         line.remove_prefix(1)) {
        const char c = line.front();
        if (c != '"') {
            item += c;
            backslashes = c == '\\' && !isProgram ? backslashes + 1 : 0;
            continue;
        }
        const bool isEscaped = backslashes % 2 == 1;
        const bool isDoubled = !isProgram && !isEscaped && quoted && line.starts_with("\"\"");
        item.resize(item.size() - (backslashes + 1) / 2);
        if (isEscaped || isDoubled) {
            item += '"';
        } else {
            quoted = !quoted;
        }
        if (isDoubled) line.remove_prefix(1);
        backslashes = 0;
    }
    return item;
}

}  // namespace

std::vector<std::string> SplitArguments(std::string_view commandLine) {
    std::vector<std::string> arguments{Take(commandLine, true)};
    while (true) {
        commandLine.remove_prefix(std::min(commandLine.find_first_not_of(kBlanks), commandLine.size()));
        if (commandLine.empty()) return arguments;
        arguments.push_back(Take(commandLine, false));
    }
}

}  // namespace winhost
