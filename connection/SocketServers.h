// The two listening sockets of the service: HttpsSocket for the management console, KvmSocket for the remote
// screen. They move no bytes; each hands the sockets it accepts to its caller, who owns them from then on.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <atomic>
#include <cstdint>
#include <memory>

// What both have in common. CreateSocket and AcceptSocket belong to one owner thread; CloseBaseSocket may
// come from any other, to break the owner out of AcceptSocket.
class SocketServer {
  public:
    SocketServer(const SocketServer&) = delete;
    SocketServer& operator=(const SocketServer&) = delete;

    // Listens on all interfaces on `port` (host order), in place of an older listener. 0, or the Winsock
    // error.
    int CreateSocket(uint16_t port);
    // Blocks until a peer connects. The accepted socket, itself blocking or not, with its address in `peer`;
    // or INVALID_SOCKET.
    SOCKET AcceptSocket(bool blocking, sockaddr_in& peer);
    // Harmless when nothing listens.
    void CloseBaseSocket();

  protected:
    enum class WinsockStart { First, Last };
    explicit SocketServer(WinsockStart order);
    ~SocketServer();

    virtual bool ReportsFailedAccept() const = 0;

  private:
    int BindAndListen(SOCKET socket, uint16_t port);

    std::atomic<SOCKET> baseSocket;
    std::unique_ptr<sockaddr_in> serverAddress;
};

class HttpsSocket final : public SocketServer {
  public:
    HttpsSocket() : SocketServer(WinsockStart::Last) {}

  private:
    // A stop ends accept() by closing the listener, and the error of that is nothing to report.
    bool ReportsFailedAccept() const override;
};

class KvmSocket final : public SocketServer {
  public:
    KvmSocket() : SocketServer(WinsockStart::First) {}

  private:
    bool ReportsFailedAccept() const override { return true; }
};
