// Waiting for an instance that listens: it may come from another process, the deadline is the PC's clock's.
#include <poll.h>
#include <sys/inotify.h>

#include <thread>

#include "winhost/pipe/Interrupt.h"
#include "winhost/pipe/PipeFolder.h"

namespace winhost {
namespace {

// Tells of every file that is made in a folder, by a thread of its own.
class FolderWatch {
  public:
    explicit FolderWatch(const std::string& folder) {
        inotify_add_watch(m_events.Get(), folder.c_str(), IN_CREATE);
        m_thread = std::thread([this] { Run(); });
    }
    ~FolderWatch() {
        m_stop.Raise();
        m_thread.join();
    }
    // False at the deadline. What happened since the last call counts.
    bool AwaitFile(Clock::Deadline deadline) {
        std::unique_lock lock(m_mutex);
        const bool made = Clock::Instance().WaitUntil(lock, m_changed, deadline, [&] { return m_fileMade; });
        m_fileMade = false;
        return made;
    }

  private:
    void Run() {
        pollfd waits[] = {{m_events.Get(), POLLIN, 0}, {m_stop.Get(), POLLIN, 0}};
        while (poll(waits, 2, -1) >= 0 || errno == EINTR) {
            if (waits[1].revents) return;
            alignas(inotify_event) char events[4096];
            if (read(m_events.Get(), events, sizeof events) <= 0) continue;
            std::lock_guard lock(m_mutex);
            m_fileMade = true;
            m_changed.notify_all();
        }
    }

    const testbed::Descriptor m_events{inotify_init1(IN_CLOEXEC | IN_NONBLOCK)};
    Interrupt m_stop;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_fileMade = false;
    std::thread m_thread;
};

}  // namespace

bool PipeFolder::AwaitListening(Clock::Deadline deadline) {
    if (HasListener()) return true;
    FolderWatch watch("/proc/self/fd/" + std::to_string(m_folder.Get()));
    // It may have come before the watch.
    while (!HasListener())
        if (!watch.AwaitFile(deadline)) return false;
    return true;
}

}  // namespace winhost
