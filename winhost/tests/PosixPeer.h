// The other end of a connection, outside the simulated PC: plain POSIX sockets of the host.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

#include "testbed/Descriptor.h"

class PosixPeer {
  public:
    // Each throws std::runtime_error when it can't be had. Ports in host order, on the loopback address.
    static PosixPeer ConnectTo(uint16_t port);
    static PosixPeer ConnectToUnix(const std::string& path);
    static PosixPeer ListenOn(uint16_t port);  // 0: any free port
    // As a process does that ends without removing its socket.
    static void LeaveUnixSocketBehind(const std::string& path);

    uint16_t Port() const;
    PosixPeer Accept();
    void Send(const std::string& text);
    // Exactly so many bytes, fewer only when the connection ends.
    std::string Receive(size_t size);
    std::string ReceiveLine();
    // True when the connection was ended, orderly or not, with nothing more to read.
    bool AwaitEnd();
    void EndSending();
    void Close() { m_socket.Close(); }
    // Ends the connection with a reset.
    void Reset();

  private:
    explicit PosixPeer(testbed::Descriptor socket) : m_socket(std::move(socket)) {}
    testbed::Descriptor m_socket;
};

// Waits until the thread with this id sleeps in the kernel.
void AwaitBlocked(pid_t thread);
