// The service's log as a test reads it.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "testbed/Descriptor.h"

struct LogLine {
    std::string text;     // the whole line without its line break
    std::string level;    // "INFO", "WARN", "ERROR", or empty when the line has no such form
    std::string message;  // between the level and the suffix
    uint32_t thread = 0;
};

LogLine ParseLogLine(const std::string& text);

// The complete lines of the file, in order; none when there is no file.
std::vector<LogLine> ReadLog(const std::filesystem::path& file);

// Follows a log that grows: each look reads only what has been written since the one before. A log that
// begins anew, as after a rotation, is read anew. Any thread may look.
class LogTail {
  public:
    using Lines = std::vector<LogLine>;

    explicit LogTail(std::filesystem::path file) : m_path(std::move(file)) {}

    // The complete lines of the file, in order; none when there is no file.
    Lines All();
    // Calls visit(lines), which must not look itself.
    void Look(const std::function<void(const Lines&)>& visit);
    // Waits until holds(lines) is true, and looks at each change of the log's folder. False when the patience
    // is over.
    bool Await(const std::function<bool(const Lines&)>& holds, std::chrono::milliseconds patience);

  private:
    void ReadOn();

    const std::filesystem::path m_path;
    std::mutex m_mutex;  // guards what follows
    testbed::Descriptor m_file;
    uint64_t m_identity = 0;
    std::string m_part;  // of a line that is not complete
    Lines m_lines;
};
