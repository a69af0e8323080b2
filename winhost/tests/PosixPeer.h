// The other end of a connection, outside the simulated PC: plain POSIX sockets of the host.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

class PosixPeer {
  public:
    // Each throws std::runtime_error when it can't be had. Ports in host order, on the loopback address.
    static PosixPeer ConnectTo(uint16_t port);
    static PosixPeer ConnectToUnix(const std::string& path);
    static PosixPeer ListenOn(uint16_t port);  // 0: any free port

    PosixPeer(PosixPeer&& other) noexcept : m_descriptor(other.m_descriptor) { other.m_descriptor = -1; }
    PosixPeer(const PosixPeer&) = delete;
    PosixPeer& operator=(const PosixPeer&) = delete;
    ~PosixPeer() { Close(); }

    uint16_t Port() const;
    PosixPeer Accept();
    void Send(const std::string& text);
    // Exactly so many bytes, fewer only when the connection ends.
    std::string Receive(size_t size);
    std::string ReceiveLine();
    // True when the connection was ended, orderly or not, with nothing more to read.
    bool AwaitEnd();
    void EndSending();
    void Close();
    // Ends the connection with a reset.
    void Reset();

  private:
    explicit PosixPeer(int descriptor) : m_descriptor(descriptor) {}
    int m_descriptor;
};

// Waits until the thread with this id sleeps in the kernel.
void AwaitBlocked(pid_t thread);
