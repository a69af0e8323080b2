// One line of the log, for any text: names from the network, from the firmware, from files.
#include <algorithm>
#include <string>

#include "base/LogLine.h"
#include "fuzz/Input.h"

namespace {
constexpr size_t kLongestLine = 1024;
}

FUZZ_TARGET(logline) {
    const std::string message = fuzz::TextOf(input);
    FixedText<1025> line;
    AssembleLogLine(line, "ZELService", message.c_str(), "INFO:  ");
    const std::string text(line.View());
    fuzz::Require(text.size() <= kLongestLine, "a line is no longer than 1024 bytes");
    fuzz::Require(std::count(text.begin(), text.end(), '\n') == 1 && text.ends_with(")>\n"),
                  "a line is one line, and whole at its end");
    fuzz::Require(text.find(" $$<ZELService> <") != std::string::npos, "a line has its tag");
    std::string logged = message.c_str();
    std::erase_if(logged, [](char c) { return c == '\r' || c == '\n'; });
    const size_t at = text.find("INFO:  ") + 7;
    const size_t same =
        std::mismatch(logged.begin(), logged.end(), text.begin() + at, text.end()).first - logged.begin();
    fuzz::Require(same == logged.size() || text.size() == kLongestLine,
                  "a message is cut only where it must be");
}
