// A thread that an object owns, as the base of that object. Its Run is called on the thread.
#pragma once

#include <atomic>
#include <thread>

namespace lux {

// Start, WaitForStop and the destructor: one thread. The others: any thread.
class LUXThread {
  public:
    LUXThread() = default;
    // The thread must have ended: a derived class waits for it in its own destructor.
    virtual ~LUXThread();
    LUXThread(const LUXThread&) = delete;
    LUXThread& operator=(const LUXThread&) = delete;

    // False when the thread runs already or cannot be started.
    virtual bool Start();
    // Makes StopRequested true; Run decides when it looks.
    virtual bool RequestStop();
    // Blocks until Run has returned. Returns at once when the thread was never started.
    virtual bool WaitForStop();
    virtual bool StopRequested();
    virtual bool IsRunning();
    virtual void Run() = 0;
    virtual bool Init() { return true; }
    virtual bool Terminate() { return true; }

  private:
    std::thread m_thread;
    std::atomic<bool> m_stopRequested{false}, m_isRunning{false};
};

}  // namespace lux
