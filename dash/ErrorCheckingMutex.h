// A mutex that throws std::system_error when its owner locks it again. With std::mutex that is undefined
// behaviour.
#pragma once

#include <atomic>
#include <mutex>
#include <system_error>
#include <thread>

class ErrorCheckingMutex {
  public:
    void lock() {
        if (m_owner == std::this_thread::get_id()) {
            throw std::system_error(std::make_error_code(std::errc::resource_deadlock_would_occur));
        }
        m_mutex.lock();
        m_owner = std::this_thread::get_id();
    }

    void unlock() {
        m_owner = std::thread::id();
        m_mutex.unlock();
    }

  private:
    std::mutex m_mutex;
    std::atomic<std::thread::id> m_owner{};
};
