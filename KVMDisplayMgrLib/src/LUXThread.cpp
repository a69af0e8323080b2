#include "KVMDisplayMgrLib/src/LUXThread.h"

#include <system_error>

namespace lux {

LUXThread::~LUXThread() {
    if (m_thread.joinable()) m_thread.join();
}

bool LUXThread::Start() {
    if (m_thread.joinable()) return false;
    m_stopRequested = false;
    m_isRunning = true;
    try {
        m_thread = std::thread([this] {
            Run();
            m_isRunning = false;
        });
    } catch (const std::system_error&) {
        m_isRunning = false;
        return false;
    }
    return true;
}

bool LUXThread::RequestStop() {
    m_stopRequested = true;
    return true;
}

bool LUXThread::WaitForStop() {
    if (m_thread.joinable()) m_thread.join();
    return true;
}

bool LUXThread::StopRequested() {
    return m_stopRequested;
}

bool LUXThread::IsRunning() {
    return m_isRunning;
}

}  // namespace lux
