#include "firmware/web/Worker.h"

namespace mpm::web {

Worker::~Worker() {
    {
        std::lock_guard lock(m_mutex);
        m_stopping = true;
    }
    m_changed.notify_one();
    m_thread.join();
}

bool Worker::Post(std::function<void()> job) {
    std::lock_guard lock(m_mutex);
    if (m_jobs.size() >= m_mostWaiting) return false;
    m_jobs.push_back(std::move(job));
    m_changed.notify_one();
    return true;
}

void Worker::Main() {
    std::unique_lock lock(m_mutex);
    for (;;) {
        m_changed.wait(lock, [this] { return m_stopping || !m_jobs.empty(); });
        if (m_stopping) return;
        const std::function<void()> job = std::move(m_jobs.front());
        m_jobs.pop_front();
        lock.unlock();
        job();
        lock.lock();
    }
}

}  // namespace mpm::web
