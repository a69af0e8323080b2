#include "firmware/RequestLog.h"

namespace mpm {

void RequestLog::Add(Request request, bool keep) {
    {
        std::lock_guard lock(m_mutex);
        ++m_counts[request.name];
        if (keep) {
            m_keptBytes += request.data.size();
            m_kept.push_back(std::move(request));
            while (m_kept.size() > kMaxKept || m_keptBytes > kMaxKeptBytes) {
                m_keptBytes -= m_kept.front().data.size();
                m_kept.pop_front();
                ++m_firstSerial;
            }
        }
    }
    m_added.notify_all();
}

std::vector<Request> RequestLog::All(const std::string* name) const {
    std::lock_guard lock(m_mutex);
    std::vector<Request> requests;
    for (const Request& request : m_kept)
        if (!name || request.name == *name) requests.push_back(request);
    return requests;
}

size_t RequestLog::Count(const std::string& name) const {
    std::lock_guard lock(m_mutex);
    const auto found = m_counts.find(name);
    return found == m_counts.end() ? 0 : found->second;
}

std::optional<Request> RequestLog::Await(const std::string& name,
                                         const std::function<bool(const Request&)>& matches,
                                         std::chrono::milliseconds patience) const {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    std::unique_lock lock(m_mutex);
    for (uint64_t next = m_firstSerial;;) {
        for (next = std::max(next, m_firstSerial); next < m_firstSerial + m_kept.size();) {
            const Request& candidate = m_kept[next++ - m_firstSerial];
            if (candidate.name != name) continue;
            const Request request = candidate;
            // The caller's function may look at the firmware itself.
            lock.unlock();
            if (!matches || matches(request)) return request;
            lock.lock();
            next = std::max(next, m_firstSerial);
        }
        const auto news = [&] { return next < m_firstSerial + m_kept.size(); };
        if (!m_added.wait_until(lock, deadline, news)) return std::nullopt;
    }
}

bool RequestLog::AwaitCount(const std::string& name, size_t count, std::chrono::milliseconds patience) const {
    std::unique_lock lock(m_mutex);
    return m_added.wait_for(lock, patience, [&] {
        const auto found = m_counts.find(name);
        return count == 0 || (found != m_counts.end() && found->second >= count);
    });
}

void RequestLog::Clear() {
    std::lock_guard lock(m_mutex);
    m_firstSerial += m_kept.size();
    m_kept.clear();
    m_keptBytes = 0;
    m_counts.clear();
}

}  // namespace mpm
