#include "firmware/web/LogFollower.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>

namespace mpm::web {

using std::chrono::milliseconds;

// A replaced file is read to its end first.
std::vector<LogLine> LogFollower::Poll() {
    std::vector<LogLine> lines;
    struct stat status;
    if (!m_file && !Open()) return lines;
    if (fstat(m_file.Get(), &status) != 0) return lines;
    if (status.st_size < m_offset) {
        m_offset = 0;
        m_part.clear();
        m_skipsLine = false;
    }
    Read(status.st_size, lines);
    const bool atEnd = m_offset >= status.st_size;
    if (atEnd)
        SetTimes(lines,
                 std::chrono::system_clock::time_point(std::chrono::seconds(status.st_mtim.tv_sec) +
                                                       milliseconds(status.st_mtim.tv_nsec / 1000000)));
    struct stat named;
    const bool replaced = stat(m_path.c_str(), &named) == 0 && named.st_ino != m_inode;
    if (atEnd && replaced) m_file.Close();
    return lines;
}

bool LogFollower::Open() {
    // A pipe in its place would block.
    m_file = testbed::Descriptor(open(m_path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status;
    if (m_file && (fstat(m_file.Get(), &status) != 0 || !S_ISREG(status.st_mode))) m_file.Close();
    if (!m_file) return false;
    const bool first = m_inode == 0;
    m_inode = status.st_ino;
    m_offset = 0;
    m_part.clear();
    m_skipsLine = false;
    if (first && status.st_size > off_t(kMostBehind)) {
        m_offset = status.st_size - off_t(kMostBehind);
        m_skipsLine = true;
    }
    return true;
}

void LogFollower::Read(off_t size, std::vector<LogLine>& lines) {
    if (size - m_offset > off_t(kMostBehind)) {
        const off_t next = size - off_t(kMostBehind);
        LogLine note;
        note.text = "(" + std::to_string(next - m_offset) + " bytes of the log are not shown)";
        lines.push_back(note);
        m_offset = next;
        m_part.clear();
        m_skipsLine = true;
    }
    char block[65536];
    while (m_offset < size) {
        const auto wanted = size_t(std::min<off_t>(size - m_offset, sizeof block));
        const ssize_t count = pread(m_file.Get(), block, wanted, m_offset);
        if (count <= 0) return;
        m_offset += count;
        m_part.append(block, size_t(count));
        Split(lines);
    }
}

void LogFollower::Split(std::vector<LogLine>& lines) {
    size_t begin = 0;
    for (size_t end; (end = m_part.find('\n', begin)) != std::string::npos; begin = end + 1) {
        const std::string_view line = std::string_view(m_part).substr(begin, end - begin);
        if (!m_skipsLine) lines.push_back(LogLine::Parse(line.substr(0, kLongestLine)));
        m_skipsLine = false;
    }
    m_part.erase(0, begin);
    if (m_part.size() > kLongestLine) {
        if (!m_skipsLine) lines.push_back(LogLine::Parse(std::string_view(m_part).substr(0, kLongestLine)));
        m_part.clear();
        m_skipsLine = true;
    }
}

// The log has the PC's local time and only the name of its zone. Zones are whole quarters of an hour apart,
// and the file was written when its last line was.
void LogFollower::SetTimes(std::vector<LogLine>& lines, std::chrono::system_clock::time_point written) {
    const auto last = std::find_if(lines.rbegin(), lines.rend(),
                                   [](const LogLine& line) { return line.stamp.has_value(); });
    if (last == lines.rend()) return;
    const auto ahead = *last->stamp - std::chrono::floor<milliseconds>(written.time_since_epoch());
    using Quarters = std::chrono::duration<int64_t, std::ratio<15 * 60>>;
    m_zone = std::chrono::round<Quarters>(ahead);
    for (LogLine& line : lines)
        if (line.stamp) line.time = std::chrono::system_clock::time_point(*line.stamp - m_zone);
}

}  // namespace mpm::web
