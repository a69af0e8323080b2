#include "firmware/EventLoop.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>

#include <cerrno>
#include <system_error>

namespace mpm {

namespace {

constexpr EventLoop::WatchId kWakeId = 0;

void Check(bool ok, const char* what) {
    if (!ok) throw std::system_error(errno, std::generic_category(), what);
}

}  // namespace

EventLoop::EventLoop()
    : m_epoll(epoll_create1(EPOLL_CLOEXEC)), m_wake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    Check(bool(m_epoll) && bool(m_wake), "event loop");
    epoll_event event{EPOLLIN, {}};
    event.data.u64 = kWakeId;
    Check(epoll_ctl(m_epoll.Get(), EPOLL_CTL_ADD, m_wake.Get(), &event) == 0, "epoll_ctl");
    m_thread = std::thread(&EventLoop::Main, this);
}

EventLoop::~EventLoop() {
    Stop();
}

void EventLoop::Stop() {
    {
        std::lock_guard lock(m_mutex);
        m_stopping = true;
    }
    eventfd_write(m_wake.Get(), 1);
    if (m_thread.joinable()) m_thread.join();
}

void EventLoop::Run(const std::function<void()>& call) {
    std::future<void> done;
    if (std::this_thread::get_id() != m_thread.get_id()) {
        std::lock_guard lock(m_mutex);
        if (!m_stopping) done = m_calls.emplace_back(call).get_future();
    }
    if (!done.valid()) return call();
    eventfd_write(m_wake.Get(), 1);
    done.get();
}

EventLoop::WatchId EventLoop::Watch(int descriptor, uint32_t events, std::function<void(uint32_t)> ready) {
    const WatchId id = m_nextId++;
    epoll_event event{events, {}};
    event.data.u64 = id;
    Check(epoll_ctl(m_epoll.Get(), EPOLL_CTL_ADD, descriptor, &event) == 0, "epoll_ctl");
    m_watched.emplace(id, std::make_shared<Watched>(Watched{descriptor, std::move(ready)}));
    return id;
}

void EventLoop::ChangeEvents(WatchId watch, uint32_t events) {
    const auto found = m_watched.find(watch);
    if (found == m_watched.end()) return;
    epoll_event event{events, {}};
    event.data.u64 = watch;
    Check(epoll_ctl(m_epoll.Get(), EPOLL_CTL_MOD, found->second->descriptor, &event) == 0, "epoll_ctl");
}

void EventLoop::Unwatch(WatchId watch) {
    const auto found = m_watched.find(watch);
    if (found == m_watched.end()) return;
    epoll_ctl(m_epoll.Get(), EPOLL_CTL_DEL, found->second->descriptor, nullptr);
    m_watched.erase(found);
}

EventLoop::TimerId EventLoop::After(Clock::duration delay, std::function<void()> call) {
    const TimerId id = m_nextId++;
    m_timers.emplace(std::pair(Clock::now() + delay, id), std::move(call));
    return id;
}

void EventLoop::Cancel(TimerId timer) {
    std::erase_if(m_timers, [timer](const auto& entry) { return entry.first.second == timer; });
}

void EventLoop::RunCalls() {
    eventfd_t count;
    eventfd_read(m_wake.Get(), &count);
    std::vector<std::packaged_task<void()>> calls;
    {
        std::lock_guard lock(m_mutex);
        calls.swap(m_calls);
    }
    for (auto& call : calls)
        call();
}

int EventLoop::RunTimers() {
    while (!m_timers.empty()) {
        const auto left = m_timers.begin()->first.first - Clock::now();
        if (left > Clock::duration::zero())
            return int(std::chrono::ceil<std::chrono::milliseconds>(
                           std::min<Clock::duration>(left, std::chrono::hours(1)))
                           .count());
        const auto call = std::move(m_timers.begin()->second);
        m_timers.erase(m_timers.begin());
        call();
    }
    return -1;
}

void EventLoop::Main() {
    epoll_event events[16];
    for (;;) {
        const int count = epoll_wait(m_epoll.Get(), events, std::size(events), RunTimers());
        for (int i = 0; i < count; ++i) {
            // A copy: the kernel's structure is packed.
            const WatchId id = events[i].data.u64;
            if (id == kWakeId) {
                RunCalls();
                continue;
            }
            // An earlier handler of this round may have removed this one, and this one may remove itself.
            const auto found = m_watched.find(id);
            if (found == m_watched.end()) continue;
            const auto watched = found->second;
            watched->ready(events[i].events);
        }
        std::lock_guard lock(m_mutex);
        if (m_stopping && m_calls.empty()) return;
    }
}

}  // namespace mpm
