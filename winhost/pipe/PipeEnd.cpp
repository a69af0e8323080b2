#include "winhost/pipe/PipeEnd.h"

#include <namedpipeapi.h>

namespace winhost {

DWORD PipeEnd::Read(void* buffer, DWORD size, DWORD& bytes) {
    return Perform([&]() -> DWORD {
        if (!(m_access & GENERIC_READ)) return ERROR_ACCESS_DENIED;
        if (const DWORD error = NeedConnection()) return error;
        const DWORD error = m_connection->Read(buffer, size, m_readsMessages, bytes, m_interrupt);
        if (error != ERROR_SUCCESS && error != ERROR_MORE_DATA) bytes = 0;
        return error;
    });
}

DWORD PipeEnd::Write(const void* data, DWORD size, DWORD& bytes) {
    return Perform([&]() -> DWORD {
        if (!(m_access & GENERIC_WRITE)) return ERROR_ACCESS_DENIED;
        if (const DWORD error = NeedConnection()) return error;
        return m_connection->Write(data, size, bytes, m_interrupt);
    });
}

DWORD PipeEnd::SetReadMode(DWORD mode) {
    return Perform([&]() -> DWORD {
        if (!(m_access & GENERIC_WRITE)) return ERROR_ACCESS_DENIED;
        if (mode & PIPE_NOWAIT) return ERROR_NOT_SUPPORTED;
        const bool readsMessages = mode == PIPE_READMODE_MESSAGE;
        if ((mode & ~PIPE_READMODE_MESSAGE) || (readsMessages && !m_terms.holdsMessages))
            return ERROR_INVALID_PARAMETER;
        m_readsMessages = readsMessages;
        return ERROR_SUCCESS;
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
