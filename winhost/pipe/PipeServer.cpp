#include "winhost/pipe/PipeServer.h"

#include <poll.h>
#include <sys/file.h>
#include <sys/socket.h>

#include <cerrno>
#include <utility>

#include <namedpipeapi.h>

namespace winhost {
namespace {

DWORD AccessOf(DWORD pipeAccess) {
    return (pipeAccess & PIPE_ACCESS_INBOUND ? GENERIC_READ : 0) |
           (pipeAccess & PIPE_ACCESS_OUTBOUND ? GENERIC_WRITE : 0);
}

}  // namespace

PipeServer::PipeServer(const PipeTerms& terms, bool readsMessages)
    : PipeEnd(terms, AccessOf(terms.access), readsMessages) {}

PipeServer::~PipeServer() {
    Release();
}

DWORD PipeServer::Create(const std::string& name, const PipeTerms& terms, bool readsMessages,
                         std::shared_ptr<PipeServer>& server) {
    std::shared_ptr<PipeServer> made(new PipeServer(terms, readsMessages));
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
            if (!Listens())
                if (const DWORD error = Listen()) return error;
            const bool wasThere = ClientIsWaiting();
            if (const DWORD error = AcceptClient()) return error;
            if (!wasThere) return ERROR_SUCCESS;
        }
        return m_connection->PeerHasGone() ? ERROR_NO_DATA : ERROR_PIPE_CONNECTED;
    });
}

DWORD PipeServer::Disconnect() {
    return Perform([&]() -> DWORD {
        if (Listens() && ClientIsWaiting()) AcceptClient();
        if (!m_connection && !Listens()) return ERROR_PIPE_NOT_CONNECTED;
        if (m_connection) m_connection->Disconnect();
        m_connection.reset();
        StopListening();
        return ERROR_SUCCESS;
    });
}

DWORD PipeServer::NeedConnection() {
    if (m_connection) return ERROR_SUCCESS;
    if (!Listens()) return ERROR_PIPE_NOT_CONNECTED;
    return ClientIsWaiting() ? AcceptClient() : static_cast<DWORD>(ERROR_PIPE_LISTENING);
}

void PipeServer::Release() {
    PipeEnd::Release();
    if (!m_file) return;
    StopListening();
    m_folder.Remove(m_number);
    // A process that is just being started may still hold a copy of the file, and with it the lock.
    flock(m_file.Get(), LOCK_UN);
    m_file = {};
}

DWORD PipeServer::Listen() {
    return m_folder.Listen(m_number, m_listener);
}

// Clients that are on their way find nobody.
void PipeServer::StopListening() {
    m_arriving = {};
    if (!m_listener) return;
    m_folder.StopListening(m_number);
    shutdown(m_listener.Get(), SHUT_RDWR);
    m_listener = {};
}

bool PipeServer::ClientIsWaiting() const {
    pollfd wait{m_listener.Get(), POLLIN, 0};
    return m_arriving || poll(&wait, 1, 0) > 0;
}

DWORD PipeServer::AcceptClient() {
    for (;;) {
        if (!m_arriving) {
            if (const DWORD error = AwaitDescriptor(m_listener.Get(), POLLIN, m_interrupt)) return error;
            m_arriving = testbed::Descriptor(
                accept4(m_listener.Get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
            if (!m_arriving && (errno == EINTR || errno == EAGAIN || errno == ECONNABORTED)) continue;
            if (!m_arriving) return ERROR_NO_SYSTEM_RESOURCES;
            m_listener = {};
        }
        if (const DWORD error = AwaitDescriptor(m_arriving.Get(), POLLIN, m_interrupt)) return error;
        m_connection =
            PipeConnection::Take(std::exchange(m_arriving, {}), m_terms.holdsMessages, m_terms.outBuffer);
        if (m_connection) return ERROR_SUCCESS;
        // It was killed on its way in: nobody has connected yet.
        if (const DWORD error = Listen()) return error;
    }
}

}  // namespace winhost
