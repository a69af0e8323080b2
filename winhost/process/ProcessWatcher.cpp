#include "winhost/process/ProcessWatcher.h"

#include <sys/epoll.h>

#include <atomic>
#include <cerrno>
#include <system_error>
#include <thread>
#include <vector>

namespace winhost {
namespace {

// Set once there is a watcher, so that a change of the description doesn't make one.
std::atomic<ProcessWatcher*> g_watcher{nullptr};

[[noreturn]] void Throw(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

}  // namespace

// Never destroyed: its thread runs until the process is gone.
ProcessWatcher& ProcessWatcher::Instance() {
    static ProcessWatcher& watcher = *new ProcessWatcher;
    return watcher;
}

ProcessWatcher::ProcessWatcher() : m_epoll(epoll_create1(EPOLL_CLOEXEC)) {
    if (!m_epoll) Throw("epoll_create1");
    std::thread(&ProcessWatcher::Run, this).detach();
    g_watcher = this;
}

ProcessWatcher::Key ProcessWatcher::Watch(testbed::Descriptor pidfd, Callback callback) {
    std::lock_guard lock(m_mutex);
    const Key key = ++m_lastKey;
    epoll_event event{};
    event.events = EPOLLIN | EPOLLONESHOT;
    event.data.u64 = key;
    if (epoll_ctl(m_epoll.Get(), EPOLL_CTL_ADD, pidfd.Get(), &event) != 0) Throw("epoll_ctl");
    m_watched[key] = {std::move(pidfd), std::move(callback)};
    return key;
}

ProcessWatcher::Key ProcessWatcher::WatchDescription(Callback callback) {
    std::lock_guard lock(m_mutex);
    m_watched[++m_lastKey] = {testbed::Descriptor(), std::move(callback)};
    return m_lastKey;
}

void ProcessWatcher::Forget(Key key) {
    std::lock_guard lock(m_mutex);
    if (const auto found = m_watched.find(key); found != m_watched.end()) Drop(found);
}

void ProcessWatcher::OnDescriptionChanged() {
    ProcessWatcher* const watcher = g_watcher;
    if (!watcher) return;
    std::vector<Callback> callbacks;
    {
        std::lock_guard lock(watcher->m_mutex);
        for (const auto& [key, watched] : watcher->m_watched)
            if (!watched.pidfd) callbacks.push_back(watched.callback);
    }
    for (const Callback& callback : callbacks)
        callback();
}

void ProcessWatcher::Run() {
    while (true) {
        epoll_event event;
        if (epoll_wait(m_epoll.Get(), &event, 1, -1) != 1) continue;
        if (const Callback callback = TakeEnded(event.data.u64)) callback();
    }
}

ProcessWatcher::Callback ProcessWatcher::TakeEnded(Key key) {
    std::lock_guard lock(m_mutex);
    const auto found = m_watched.find(key);
    if (found == m_watched.end()) return nullptr;
    Callback callback = std::move(found->second.callback);
    Drop(found);
    return callback;
}

// Taken from the set first: a program that is being started may hold a copy of the descriptor for a moment.
void ProcessWatcher::Drop(std::map<Key, Watched>::iterator watched) {
    if (const testbed::Descriptor& pidfd = watched->second.pidfd)
        epoll_ctl(m_epoll.Get(), EPOLL_CTL_DEL, pidfd.Get(), nullptr);
    m_watched.erase(watched);
}

}  // namespace winhost
