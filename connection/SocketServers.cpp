#include "connection/SocketServers.h"

#include <windows.h>
#include <handleapi.h>

#include <bit>

#include "base/Log.h"
#include "state/ServiceState.h"

namespace {

constexpr int kBacklog = 1;

void StartWinsock() {
    WSADATA data{};
    // A failure is not stored: the calls that follow report their own errors.
    if (const int error = WSAStartup(MAKEWORD(2, 0), &data)) {
        LogError("WSAStartup() call failed with error: %d", error);
    }
}

// A program that the service starts may inherit its handles. A listener that such a program holds keeps its
// port, and its accept() does not end when the service closes it.
void KeepToThisProcess(SOCKET socket) {
    SetHandleInformation(std::bit_cast<HANDLE>(socket), HANDLE_FLAG_INHERIT, 0);
}

}  // namespace

SocketServer::SocketServer(WinsockStart order) {
    if (order == WinsockStart::First) StartWinsock();
    baseSocket = INVALID_SOCKET;
    serverAddress = std::make_unique<sockaddr_in>();
    if (order == WinsockStart::Last) StartWinsock();
}

SocketServer::~SocketServer() {
    CloseBaseSocket();
    serverAddress.reset();
    if (WSACleanup() != 0) LogError("WSACleanup() API failed with error: %d", WSAGetLastError());
}

int SocketServer::CreateSocket(uint16_t port) {
    CloseBaseSocket();
    const SOCKET listener = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    baseSocket = listener;
    if (listener == INVALID_SOCKET) {
        const int error = WSAGetLastError();
        LogError("socket() API failed with error: %d", error);
        return error;
    }
    KeepToThisProcess(listener);
    const int error = BindAndListen(listener, port);
    if (error) CloseBaseSocket();
    return error;
}

int SocketServer::BindAndListen(SOCKET socket, uint16_t port) {
    serverAddress->sin_family = AF_INET;
    serverAddress->sin_addr.s_addr = INADDR_ANY;
    serverAddress->sin_port = htons(port);
    if (bind(socket, reinterpret_cast<const sockaddr*>(serverAddress.get()), sizeof(sockaddr_in)) != 0) {
        const int error = WSAGetLastError();
        LogError("bind() API failed with error: %d", error);
        return error;
    }
    if (listen(socket, kBacklog) != 0) {
        const int error = WSAGetLastError();
        LogError("listen() API failed with error: %d", error);
        return error;
    }
    return 0;
}

UniqueSocket SocketServer::AcceptSocket(bool blocking, sockaddr_in& peer) {
    int length = sizeof(sockaddr_in);
    UniqueSocket accepted(accept(baseSocket, reinterpret_cast<sockaddr*>(&peer), &length));
    if (!accepted) {
        const int error = WSAGetLastError();
        if (ReportsFailedAccept()) LogError("accept() API failed with error: %d", error);
        return {};
    }
    KeepToThisProcess(accepted.Get());
    u_long mode = blocking ? 0 : 1;
    if (ioctlsocket(accepted.Get(), FIONBIO, &mode) != 0) {
        LogError("ioctlsocket() API failed with error: %d", WSAGetLastError());
        if (closesocket(accepted.Release()) != 0) LogError("Error in closing Data socket");
        return {};
    }
    return accepted;
}

void SocketServer::CloseBaseSocket() {
    const SOCKET listener = baseSocket.exchange(INVALID_SOCKET);
    if (listener != INVALID_SOCKET && closesocket(listener) != 0) LogError("Error in closing baseSocket");
}

bool HttpsSocket::ReportsFailedAccept() const {
    return !g_pServiceState->m_bServiceStopping;
}
