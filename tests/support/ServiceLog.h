// The service's log as a test reads it.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

struct LogLine {
    std::string text;     // the whole line without its line break
    std::string level;    // "INFO", "WARN", "ERROR", or empty when the line has no such form
    std::string message;  // between the level and the suffix
    uint32_t thread = 0;
};

LogLine ParseLogLine(const std::string& text);

// The complete lines of the file, in order; none when there is no file.
std::vector<LogLine> ReadLog(const std::filesystem::path& file);
