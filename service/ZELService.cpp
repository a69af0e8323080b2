// Construction of the service object, and the end of its threads at the end of the process.
#include "service/ZELService.h"

ZELService* g_pZELService = nullptr;

ZELService::ZELService(const char* serviceName)
    : ServiceState(serviceName), m_ConsoleStopEvent(CreateEventA(nullptr, TRUE, FALSE, nullptr)) {
    g_pZELService = this;
}

ZELService::~ZELService() {
    EndThreads(INFINITE);
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
    const bool allEnded = m_detachedThreads.AwaitEnd(milliseconds);
    std::lock_guard lock(m_threadObjectsMutex);
    std::unique_ptr<std::thread> kvmThread = m_kvmClientInterface.TakeThread();
    for (auto* owner : {&m_pDASHClientThreadObj, &m_pMBDriverReadThreadObj, &kvmThread}) {
        // One of them may be the thread that hangs.
        if (*owner) allEnded ? (*owner)->join() : (*owner)->detach();
        owner->reset();
    }
    return allEnded;
}
