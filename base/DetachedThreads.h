// The threads that end by returning: the process waits for the last of them before it destroys what they use.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <functional>
#include <memory>
#include <thread>

class DetachedThreads {
  public:
    DetachedThreads();
    // Waits for the threads, kPatience at most.
    ~DetachedThreads();
    DetachedThreads(const DetachedThreads&) = delete;
    DetachedThreads& operator=(const DetachedThreads&) = delete;

    static constexpr DWORD kPatience = 3000;  // milliseconds

    // Any thread. Runs the body on a new thread without an owner. False, and nothing runs, once AwaitEnd has
    // been called: the process is ending. A failed thread creation throws std::system_error; what the body
    // throws ends the process.
    bool Start(std::function<void()> body);

    // The same with an owner, who joins it; null where Start answers false. AwaitEnd waits for this one too,
    // and a join after it takes no time.
    std::unique_ptr<std::thread> StartOwned(std::function<void()> body);

    // Lets no further thread start and waits until all have returned. False when some still run after so many
    // milliseconds. May be called again.
    bool AwaitEnd(DWORD milliseconds);

  private:
    // Shared with every thread, so that the last one may outlive this object.
    struct State;
    std::shared_ptr<State> m_state;
};
