#include "fuzz/support/LogTail.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "fuzz/Target.h"

namespace fuzz {

namespace {
constexpr size_t kLongestLine = 1024;
}

void LogTail::Follow(const std::string& hostPath) {
    m_path = hostPath;
    m_file = testbed::Descriptor(open(hostPath.c_str(), O_RDONLY | O_CLOEXEC));
    m_offset = lseek(m_file.Get(), 0, SEEK_END);
    m_text.clear();
}

void LogTail::Append() {
    char piece[16384];
    for (ssize_t size; (size = pread(m_file.Get(), piece, sizeof piece, m_offset)) > 0; m_offset += size)
        m_text.append(piece, size_t(size));
}

void LogTail::Look() {
    m_text.clear();
    Append();
    struct stat ours {
    }, current{};
    fstat(m_file.Get(), &ours);
    if (stat(m_path.c_str(), &current) == 0 && current.st_ino != ours.st_ino) {
        // The rest of the old one may have come since.
        Append();
        m_file = testbed::Descriptor(open(m_path.c_str(), O_RDONLY | O_CLOEXEC));
        m_offset = 0;
        Append();
    }
    for (size_t start = 0; start < m_text.size();) {
        size_t end = m_text.find('\n', start);
        // A line that another thread is just writing comes with the next look.
        if (end == std::string::npos) {
            m_offset -= int64_t(m_text.size() - start);
            m_text.resize(start);
            break;
        }
        const std::string_view line(m_text.data() + start, end - start);
        Require(line.size() < kLongestLine && line.starts_with('[') && line.ends_with(")>"),
                "the log consists of whole lines", std::string(line));
        for (auto& [phrase, count] : m_counts)
            count += line.find(phrase) != std::string_view::npos;
        start = end + 1;
    }
}

std::vector<std::string_view> LogTail::LinesOf(uint32_t thread) const {
    const std::string mark = "> <thread = " + std::to_string(thread) + " (";
    std::vector<std::string_view> lines;
    for (size_t start = 0; start < m_text.size();) {
        const size_t end = m_text.find('\n', start);
        const std::string_view line(m_text.data() + start, end - start);
        if (line.rfind(mark) != std::string_view::npos) lines.push_back(line);
        start = end + 1;
    }
    return lines;
}

}  // namespace fuzz
