#include "wifi/ReaderWatch.h"

#include <system_error>

#include "state/ServiceState.h"

ReaderWatch::ReaderWatch(HANDLE pipe, HANDLE program)
    : m_pipe(pipe), m_program(program), m_done(CreateEventA(nullptr, TRUE, FALSE, nullptr)) {
    if (!m_done) return;
    try {
        m_thread = g_pServiceState->m_detachedThreads.StartOwned([this] { Run(); });
        if (!m_thread) SetLastError(ERROR_OPERATION_ABORTED);
    } catch (const std::system_error&) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    }
}

ReaderWatch::~ReaderWatch() {
    if (!m_thread) return;
    const DWORD error = GetLastError();
    SetEvent(m_done.Get());
    m_thread->join();
    SetLastError(error);
}

void ReaderWatch::SetConnected() {
    std::lock_guard lock(m_mutex);
    m_connected = true;
}

// Cancels again and again, because the call may only be about to block.
void ReaderWatch::Run() {
    for (DWORD waited = kPoll; WaitForSingleObject(m_done.Get(), kPoll) == WAIT_TIMEOUT; waited += kPoll)
        CancelIfOver(waited);
}

void ReaderWatch::CancelIfOver(DWORD waited) {
    std::lock_guard lock(m_mutex);
    const bool hasEnded = !m_connected && WaitForSingleObject(m_program, 0) == WAIT_OBJECT_0;
    if (hasEnded || g_pServiceState->m_bServiceStopping || waited >= kPatience) CancelIoEx(m_pipe, nullptr);
}
