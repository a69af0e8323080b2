// How a session begins and ends.
#include "kvm/KVMClientInterface.h"

#include <exception>
#include <system_error>

#include "base/Log.h"
#include "service/ZELService.h"

namespace {
constexpr const char* kCleanUp = "DoCleanUp";
}

KVMClientInterface::~KVMClientInterface() {
    m_bSessionActive.exchange(0);
    CloseSockets();
    JoinRecvThread();
}

bool KVMClientInterface::DoInitKVM(SOCKET socket) {
    LogInfo("%s: Entered", "DoInitKVM");
    const SOCKET before = m_clientSocket.exchange(socket);
    if (before != INVALID_SOCKET) {
        std::lock_guard lock(m_replacedMutex);
        m_replacedSockets.push_back(before);
    }
    m_bSessionActive.exchange(1);
    if (!m_agent.LaunchKVMAgent()) {
        LogError("%s: Launch KVM_Agent failed", "DoInitKVM");
        return false;
    }
    return true;
}

void KVMClientInterface::StartDataRecvThread() {
    std::lock_guard lock(m_recvThreadMutex);
    try {
        if (!m_pRecvThreadObj)
            m_pRecvThreadObj = g_pZELService->m_detachedThreads.StartOwned([this] { KVMDataRecvThread(); });
    } catch (const std::system_error&) {
        // Told below.
    }
    if (!m_pRecvThreadObj)
        LogError("%s: Failed to start the KVM data receiver thread", "StartDataRecvThread");
}

void KVMClientInterface::DoCleanUp() {
    m_bSessionActive.exchange(0);
    try {
        m_agent.TerminateKVMAgent();
        LogInfo("called TerminateKVMAgent");
    } catch (const std::exception& exception) {
        LogError("TerminateKVMAgent()  failed with error: %s", exception.what());
    } catch (...) {
        LogError("TerminateKVMAgent()  failed with error: %s", "Unknown exception");
    }
    CloseSockets();
    JoinRecvThread();
    LogInfo("%s, function exit", kCleanUp);
}

// There is no shutdown first: the close alone ends what the receive thread and a sender wait for.
void KVMClientInterface::CloseSockets() {
    const SOCKET socket = m_clientSocket.exchange(INVALID_SOCKET);
    if (socket != INVALID_SOCKET) {
        if (closesocket(socket) == 0) {
            LogInfo("%s: closesocket() API successful on KVM socket", kCleanUp);
        } else {
            LogError("closesocket() API failed with error: %d", WSAGetLastError());
        }
    }
    // The receive thread may still wait on the socket of a client before.
    std::lock_guard lock(m_replacedMutex);
    for (const SOCKET replaced : m_replacedSockets)
        closesocket(replaced);
    m_replacedSockets.clear();
}

void KVMClientInterface::JoinRecvThread() {
    std::unique_ptr<std::thread> thread;
    {
        std::lock_guard lock(m_recvThreadMutex);
        thread = std::move(m_pRecvThreadObj);
    }
    if (!thread) return;
    LogInfo("%s: Waiting for the DataRecvThread to exit", kCleanUp);
    thread->join();
    LogInfo("%s: DataRecvThread exit complete", kCleanUp);
}
