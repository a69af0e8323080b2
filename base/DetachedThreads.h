// Registry of background threads; shutdown waits for them before it destroys what they use.
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

    // Any thread. Runs the body on a new thread without an owner. Once AwaitEnd has been called, runs nothing
    // and returns false. A failed thread creation throws std::system_error. An exception that leaves the body
    // ends the process.
    bool Start(std::function<void()> body);

    // Does the same with an owner, which joins the thread. Returns null where Start returns false. AwaitEnd
    // waits for this thread too, and a join after AwaitEnd returns at once.
    std::unique_ptr<std::thread> StartOwned(std::function<void()> body);

    // An owned thread has been terminated and never returns: AwaitEnd does not wait for it.
    void ForgetTerminated();

    // Prevents further threads from starting and waits until all have returned. Returns false when some still
    // run after the given time. May be called again.
    bool AwaitEnd(DWORD milliseconds);

  private:
    // Every thread shares it, so that the last one may outlive this object.
    struct State;
    std::shared_ptr<State> m_state;
};
