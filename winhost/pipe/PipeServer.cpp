#include "winhost/pipe/PipeServer.h"

#include <poll.h>
#include <sys/file.h>
#include <sys/socket.h>

#include <cerrno>

#include <namedpipeapi.h>

namespace winhost {

PipeServer::~PipeServer() {
    Release();
}

DWORD PipeServer::Create(const std::string& name, const PipeTerms& terms,
                         std::shared_ptr<PipeServer>& server) {
    std::shared_ptr<PipeServer> made(new PipeServer(terms));
    if (!made->IsUsable()) return ERROR_NO_SYSTEM_RESOURCES;
    if (const DWORD error = PipeFolder::Open(name, true, made->m_folder)) return error;
    if (const DWORD error = made->m_folder.Add(terms, made->m_number, made->m_file, made->m_listener))
        return error;
    server = std::move(made);
    return ERROR_SUCCESS;
}

DWORD PipeServer::Connect() {
    return Perform([&]() -> DWORD {
        if (!m_connection) {
            if (!m_listener)
                if (const DWORD error = m_folder.Listen(m_number, m_listener)) return error;
            const bool wasThere = ClientIsWaiting();
            if (const DWORD error = AcceptClient()) return error;
            if (!wasThere) return ERROR_SUCCESS;
        }
        return m_connection->PeerHasGone() ? ERROR_NO_DATA : ERROR_PIPE_CONNECTED;
    });
}

DWORD PipeServer::Disconnect() {
    return Perform([&]() -> DWORD {
        if (m_listener && ClientIsWaiting()) AcceptClient();
        if (!m_connection && !m_listener) return ERROR_PIPE_NOT_CONNECTED;
        if (m_connection) m_connection->Disconnect();
        m_connection.reset();
        StopListening();
        return ERROR_SUCCESS;
    });
}

DWORD PipeServer::SetReadMode(DWORD mode) {
    return mode == PIPE_READMODE_MESSAGE && !m_terms.inbound ? ERROR_SUCCESS : ERROR_NOT_SUPPORTED;
}

DWORD PipeServer::NeedConnection() {
    if (m_connection) return ERROR_SUCCESS;
    if (!m_listener) return ERROR_PIPE_NOT_CONNECTED;
    return ClientIsWaiting() ? AcceptClient() : static_cast<DWORD>(ERROR_PIPE_LISTENING);
}

void PipeServer::Release() {
    PipeEnd::Release();
    if (!m_file) return;
    StopListening();
    m_folder.Remove(m_number);
    // A process that is just being started may still hold a copy of the file, and with it the lock.
    flock(m_file.Get(), LOCK_UN);
    m_file.Close();
}

// Clients that are on their way are refused.
void PipeServer::StopListening() {
    if (!m_listener) return;
    m_folder.StopListening(m_number);
    shutdown(m_listener.Get(), SHUT_RDWR);
    m_listener.Close();
}

bool PipeServer::ClientIsWaiting() const {
    pollfd wait{m_listener.Get(), POLLIN, 0};
    return poll(&wait, 1, 0) > 0;
}

DWORD PipeServer::AcceptClient() {
    testbed::Descriptor client;
    while (!client) {
        if (const DWORD error = AwaitInput(m_listener.Get(), m_interrupt)) return error;
        client = testbed::Descriptor(accept4(m_listener.Get(), nullptr, nullptr, SOCK_CLOEXEC));
        const bool again = errno == EINTR || errno == EAGAIN || errno == ECONNABORTED;
        if (!client && !again) return ERROR_NO_SYSTEM_RESOURCES;
    }
    m_connection = std::make_unique<PipeConnection>(std::move(client), m_terms.outBuffer);
    m_listener.Close();
    return ERROR_SUCCESS;
}

}  // namespace winhost
