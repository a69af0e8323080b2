#include "state/ServiceState.h"

ServiceState* g_pServiceState = nullptr;

ServiceState::ServiceState(const char* serviceName)
    : m_hStopEvent(CreateEventA(nullptr, TRUE, FALSE, nullptr)), m_ServiceName(serviceName) {
    g_pServiceState = this;
}

void ServiceState::SignalStop() {
    m_bServiceStopping = 1;
    SetEvent(m_hStopEvent.Get());
}

bool ServiceState::SleepUnlessStopping(DWORD milliseconds) {
    const DWORD result = WaitForSingleObject(m_hStopEvent.Get(), milliseconds);
    if (result == WAIT_FAILED) Sleep(milliseconds);
    return !m_bServiceStopping;
}
