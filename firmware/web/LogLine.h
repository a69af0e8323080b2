// One line of the service's log, taken apart.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace mpm::web {

struct LogLine {
    // A line that is none of the log's has neither level nor stamp.
    static LogLine Parse(std::string_view line);
    std::string ToJson(uint64_t serial) const;
    size_t Size() const { return sizeof *this + level.size() + text.size() + tag.size(); }

    std::string level;  // "ERROR", "WARN", "INFO"
    std::string text, tag;
    // What the PC's clock and calendar showed, as if its time zone were UTC.
    std::optional<std::chrono::milliseconds> stamp;
    std::optional<std::chrono::system_clock::time_point> time;
};

}  // namespace mpm::web
