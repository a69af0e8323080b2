// The one thread that sees processes end, for those who reap them and those who wait for them.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>

#include "testbed/Descriptor.h"

namespace winhost {

class ProcessWatcher {
  public:
    using Key = uint64_t;
    using Callback = std::function<void()>;

    // The first use starts the thread. Throws std::system_error when that can't be.
    static ProcessWatcher& Instance();

    // Calls back once, on the watcher's thread, when the process behind the pidfd has ended; the descriptor
    // is closed before that. Throws std::system_error.
    Key Watch(testbed::Descriptor pidfd, Callback callback);
    // Calls back after each change of the PC's description, on the thread that made it.
    Key WatchDescription(Callback callback);
    // No call comes any more, but for one that is under way.
    void Forget(Key key);

    // Of the PC: its description has changed.
    static void OnDescriptionChanged();

  private:
    struct Watched {
        testbed::Descriptor pidfd;  // none for the description
        Callback callback;
    };

    ProcessWatcher();
    void Run();
    Callback TakeEnded(Key key);
    void Drop(std::map<Key, Watched>::iterator watched);

    const testbed::Descriptor m_epoll;
    std::mutex m_mutex;
    Key m_lastKey = 0;
    std::map<Key, Watched> m_watched;
};

}  // namespace winhost
