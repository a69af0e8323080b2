// Follows a log file: from its newest lines on, over truncation and replacement. Holds no more than a few
// megabytes of it, whatever its size.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "firmware/web/LogLine.h"
#include "testbed/Descriptor.h"

namespace mpm::web {

class LogFollower {
  public:
    // Bytes read at a time. A follower that is further behind passes over what is older, with one line that
    // says so unless it has only begun.
    static constexpr size_t kMostBehind = 2u << 20;
    static constexpr size_t kLongestLine = 4096;  // the rest of a longer one is cut off

    explicit LogFollower(std::string path) : m_path(std::move(path)) {}

    // The complete lines since the last call; none while there is no file.
    std::vector<LogLine> Poll();

  private:
    bool Open();
    void Read(off_t size, std::vector<LogLine>& lines);
    void Split(std::vector<LogLine>& lines);
    void SetTimes(std::vector<LogLine>& lines, std::chrono::system_clock::time_point written);

    const std::string m_path;
    testbed::Descriptor m_file;
    ino_t m_inode = 0;
    off_t m_offset = 0;
    std::string m_part;             // of a line that is not complete yet
    bool m_skipsLine = false;       // until the next line begins
    std::chrono::minutes m_zone{};  // of the PC's clock, ahead of UTC
};

}  // namespace mpm::web
