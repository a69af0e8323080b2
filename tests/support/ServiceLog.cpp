#include "tests/support/ServiceLog.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string_view>
#include <thread>
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

// By hand, because a regular expression takes longer than the test for a log of thousands of lines.
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

namespace {

// The changes of a folder. Each wait begins with the changes since the one before.
class FolderChanges {
  public:
    explicit FolderChanges(const std::filesystem::path& folder)
        : m_queue(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
        constexpr uint32_t kChanges = IN_MODIFY | IN_CREATE | IN_MOVED_TO;
        m_watches = m_queue && inotify_add_watch(m_queue.Get(), folder.c_str(), kChanges) >= 0;
    }

    void Await(std::chrono::milliseconds patience) {
        if (!m_watches) return std::this_thread::sleep_for(std::chrono::milliseconds(1));
        pollfd wait{m_queue.Get(), POLLIN, 0};
        poll(&wait, 1, static_cast<int>(patience.count()));
        alignas(inotify_event) char events[4096];
        while (read(m_queue.Get(), events, sizeof events) > 0) {
        }
    }

  private:
    const testbed::Descriptor m_queue;
    bool m_watches = false;  // false while the folder does not exist
};

}  // namespace

void LogTail::ReadOn() {
    struct stat status {};
    if (stat(m_path.c_str(), &status) != 0) {
        m_lines.clear();
        m_file.Close();
        return;
    }
    if (!m_file || m_identity != status.st_ino || lseek(m_file.Get(), 0, SEEK_CUR) > status.st_size) {
        m_file = testbed::Descriptor(open(m_path.c_str(), O_RDONLY | O_CLOEXEC));
        m_identity = status.st_ino;
        m_part.clear();
        m_lines.clear();
    }
    char bytes[65536];
    ssize_t size = 0;
    while (m_file && (size = read(m_file.Get(), bytes, sizeof bytes)) > 0) {
        m_part.append(bytes, static_cast<size_t>(size));
        size_t start = 0;
        for (size_t end; (end = m_part.find('\n', start)) != std::string::npos; start = end + 1)
            m_lines.push_back(ParseLogLine(m_part.substr(start, end - start)));
        m_part.erase(0, start);
    }
}

LogTail::Lines LogTail::All() {
    std::lock_guard lock(m_mutex);
    ReadOn();
    return m_lines;
}

void LogTail::Look(const std::function<void(const Lines&)>& visit) {
    std::lock_guard lock(m_mutex);
    ReadOn();
    visit(m_lines);
}

bool LogTail::Await(const std::function<bool(const Lines&)>& holds, std::chrono::milliseconds patience) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    FolderChanges changes(m_path.parent_path());
    while (true) {
        bool result = false;
        Look([&](const Lines& lines) { result = holds(lines); });
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (result || left.count() <= 0) return result;
        changes.Await(left);
    }
}
