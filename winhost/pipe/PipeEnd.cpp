#include "winhost/pipe/PipeEnd.h"

namespace winhost {

DWORD PipeEnd::Read(void* buffer, DWORD size, DWORD& bytes) {
    return Perform([&]() -> DWORD {
        if (!ReadsMessages()) return ERROR_NOT_SUPPORTED;
        if (const DWORD error = NeedConnection()) return error;
        return m_connection->Read(buffer, size, bytes, m_interrupt);
    });
}

DWORD PipeEnd::Write(const void* data, DWORD size, DWORD& bytes) {
    return Perform([&]() -> DWORD {
        if (const DWORD error = NeedConnection()) return error;
        return m_connection->Write(data, size, bytes, m_interrupt);
    });
}

bool PipeEnd::Cancel(const OVERLAPPED* overlapped) {
    std::lock_guard lock(m_mutex);
    // No request here has an OVERLAPPED.
    if (overlapped || !m_underWay) return false;
    m_interrupt.Raise();
    return true;
}

void PipeEnd::OnClose() {
    {
        std::lock_guard lock(m_mutex);
        m_closed = true;
        m_interrupt.Raise();
    }
    std::lock_guard one(m_requests);
    Release();
}

}  // namespace winhost
