// The two listening sockets of the service: HttpsSocket for the management console, KvmSocket for the KVM
// viewer. They transfer no data. The caller owns each socket that they accept.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <atomic>
#include <cstdint>
#include <memory>

#include "base/Handles.h"

// The common part. CreateSocket and AcceptSocket belong to one owner thread. Any other thread may call
// CloseBaseSocket, which makes AcceptSocket return.
class SocketServer {
  public:
    SocketServer(const SocketServer&) = delete;
    SocketServer& operator=(const SocketServer&) = delete;

    // Listens on all interfaces on `port` (host order), in place of an older listener. Returns 0 or the
    // Winsock error.
    int CreateSocket(uint16_t port);
    // Blocks until a peer connects. Returns the accepted socket, in blocking mode or not, with its address in
    // `peer`, or none.
    UniqueSocket AcceptSocket(bool blocking, sockaddr_in& peer);
    // Does nothing when there is no listener.
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
    // A stop closes the listener to end accept(); that error is not logged.
    bool ReportsFailedAccept() const override;
};

class KvmSocket final : public SocketServer {
  public:
    KvmSocket() : SocketServer(WinsockStart::First) {}

  private:
    bool ReportsFailedAccept() const override { return true; }
};
