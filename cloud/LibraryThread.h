// A thread that calls the cloud library, which may never return.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <functional>
#include <memory>
#include <thread>

#include "base/TerminableCalls.h"

class LibraryThread {
  public:
    // Each call of the library is a TerminableCalls::Call.
    using Body = std::function<void(TerminableCalls& calls)>;

    // Starts the thread, which sets the event when the body has returned, unless its owner has been
    // destroyed. Returns null once the service ends. Throws std::system_error when the thread cannot be
    // started.
    static std::unique_ptr<LibraryThread> Start(HANDLE ended, Body body);
    // Detaches a thread that has not been joined. What the body uses must outlive that thread.
    ~LibraryThread();
    LibraryThread(const LibraryThread&) = delete;
    LibraryThread& operator=(const LibraryThread&) = delete;

    bool HasReturned() const;
    // Returns true when the body has returned within the time.
    bool AwaitEnd(DWORD milliseconds) const;
    bool IsJoinable() const { return m_thread->joinable(); }
    // Throws std::system_error.
    void Join() { m_thread->join(); }
    // Terminates the thread inside a call of the library, and detaches it. Returns false when the thread is
    // neither inside a call nor returns within two seconds; it then goes on.
    bool Terminate();

  private:
    struct State;
    LibraryThread(HANDLE ended, std::shared_ptr<State> state, std::unique_ptr<std::thread> thread);

    const HANDLE m_ended;  // borrowed
    const std::shared_ptr<State> m_state;
    const std::unique_ptr<std::thread> m_thread;
};
