// Construction of the service object, and the end of its threads at the end of the process.
#include "service/ZELService.h"

ZELService* g_pZELService = nullptr;

ZELService::ZELService(const char* serviceName)
    : ServiceState(serviceName), m_ConsoleStopEvent(CreateEventA(nullptr, TRUE, FALSE, nullptr)) {
    g_pZELService = this;
}

ZELService::~ZELService() {
    EndThreads(INFINITE);
    JoinThreads();
    // The workers of the sessions use the other members, which still exist here.
    m_dashClientInterface.EndSessions();
}

bool ZELService::EndThreads(DWORD milliseconds) {
    { const std::lock_guard stopIsOver(m_stopMutex); }
    SignalStop();
    m_mailboxReadLoop.Cancel();
    if (m_mailBoxDriverInterface.IsOpen()) m_mailBoxDriverInterface.CloseMPMDevice();
    {
        std::lock_guard lock(m_threadObjectsMutex);
        if (m_pDASHClientThreadObj) m_dashClientInterface.CloseHttpsSocket();
    }
    m_networkMonitor.StopNetworkScanThread();
    m_nubaClient.EndThread();
    m_kvmClientInterface.SignalEnd();
    if (!m_detachedThreads.AwaitEnd(milliseconds)) {
        // The process ends while a thread hangs, and joins none of those that have returned.
        std::lock_guard lock(m_threadObjectsMutex);
        for (auto* owner : {&m_pDASHClientThreadObj, &m_pMBDriverReadThreadObj}) {
            if (*owner) (*owner)->detach();
            owner->reset();
        }
        return false;
    }
    JoinThreads();
    return true;
}

void ZELService::JoinThreads() {
    std::lock_guard lock(m_threadObjectsMutex);
    for (auto* owner : {&m_pDASHClientThreadObj, &m_pMBDriverReadThreadObj}) {
        if (*owner) (*owner)->join();
        owner->reset();
    }
    m_kvmClientInterface.JoinThread();
}
