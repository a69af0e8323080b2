#include "winhost/pipe/PipeEnd.h"

namespace winhost {

DWORD PipeEnd::Read(void* buffer, DWORD size, DWORD& bytes) {
    return Perform([&]() -> DWORD {
        const Reading reading = Reads();
        if (reading == Reading::Denied) return ERROR_ACCESS_DENIED;
        if (reading == Reading::NotYet) return ERROR_NOT_SUPPORTED;
        if (const DWORD error = NeedConnection()) return error;
        return reading == Reading::Bytes ? m_connection->ReadBytes(buffer, size, bytes, m_interrupt)
                                         : m_connection->Read(buffer, size, bytes, m_interrupt);
    });
}

DWORD PipeEnd::Flush() {
    return Perform([&]() -> DWORD {
        if (!Writes()) return ERROR_ACCESS_DENIED;
        if (const DWORD error = NeedConnection()) return error;
        return m_connection->AwaitRead(m_interrupt);
    });
}

DWORD PipeEnd::Write(const void* data, DWORD size, DWORD& bytes) {
    return Perform([&]() -> DWORD {
        if (!Writes()) return ERROR_ACCESS_DENIED;
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
