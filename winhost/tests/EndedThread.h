// A thread that a test ends in the middle of its work.
#pragma once

#include <windows.h>

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <future>
#include <thread>

#include "winhost/tests/PosixPeer.h"

class EndedThread {
  public:
    explicit EndedThread(std::function<void()> work)
        : m_work(std::move(work)), m_thread([this] { Run(); }), m_id(m_started.get_future().get()) {
        m_handle = OpenThread(THREAD_TERMINATE | SYNCHRONIZE, FALSE, m_id);
    }
    ~EndedThread() {
        if (m_thread.joinable()) m_thread.join();
        CloseHandle(m_handle);
    }

    HANDLE Handle() const { return m_handle; }
    DWORD Id() const { return m_id; }
    // Waits until the host has put the thread to sleep.
    void AwaitBlocked() const { ::AwaitBlocked(static_cast<pid_t>(m_id)); }
    // Ends it while it blocks; true when it has ended in the middle of its work, as on Windows.
    bool Ends() {
        AwaitBlocked();
        EXPECT_TRUE(TerminateThread(m_handle, 7));
        return HasEnded();
    }
    bool HasEnded() {
        m_thread.join();
        EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(m_handle, INFINITE));
        EXPECT_FALSE(m_unwound) << "the destructor of a local object ran";
        return !m_done;
    }

  private:
    struct Local {
        std::atomic<bool>& unwound;
        ~Local() { unwound = true; }
    };
    void Run() {
        const Local local{m_unwound};
        m_started.set_value(GetCurrentThreadId());
        m_work();
        m_done = true;
    }

    std::atomic<bool> m_unwound{false}, m_done{false};
    std::promise<DWORD> m_started;
    const std::function<void()> m_work;
    std::thread m_thread;
    const DWORD m_id;
    HANDLE m_handle = nullptr;
};
