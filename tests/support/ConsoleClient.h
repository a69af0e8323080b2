// A management console on the other end of a TCP connection to the service. Patience is in real time.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

class ConsoleClient {
  public:
    static constexpr std::chrono::milliseconds kPatience{10000};

    // Connects to 127.0.0.1; keeps trying for as long as its patience lasts, then throws std::runtime_error.
    explicit ConsoleClient(uint16_t port) : ConsoleClient(port, "127.0.0.1") {}
    // The same as another host: one with this address of the loopback network.
    ConsoleClient(uint16_t port, const char* ownAddress);
    ~ConsoleClient();
    ConsoleClient(ConsoleClient&& other) noexcept;
    ConsoleClient& operator=(ConsoleClient&&) = delete;

    // Hands all bytes to the connection. False when it is closed, or stalls for longer than the patience.
    bool Send(std::string_view bytes);
    // Exactly this many bytes; fewer when the connection ends or the patience is over.
    std::string Receive(size_t size);
    // True once the service has closed the connection; bytes that come before are dropped.
    bool AwaitClose(std::chrono::milliseconds patience = kPatience);
    // True when the connection is open and nothing lies there to be read.
    bool IsQuiet();

    // Says that nothing more is to come, and goes on listening.
    void FinishSending();
    // Ends the connection in good order, or with a reset.
    void Close();
    void Reset();

    // The client's own port, in host order.
    uint16_t Port() const { return m_port; }

  private:
    bool Await(short events, std::chrono::steady_clock::time_point deadline);

    int m_socket = -1;
    uint16_t m_port = 0;
};

// A listener that keeps a port of all interfaces from the service.
class TakenPort {
  public:
    TakenPort();  // any free one
    // This one; Port() is 0 when somebody else has it.
    explicit TakenPort(uint16_t port);
    ~TakenPort();
    TakenPort(const TakenPort&) = delete;
    TakenPort& operator=(const TakenPort&) = delete;
    uint16_t Port() const { return m_port; }

  private:
    int m_socket = -1;
    uint16_t m_port = 0;
};

// A port that is free at this moment.
uint16_t FreePort();

// How many connections may wait for the listener of this process on the port; -1 when there is none.
int BacklogOf(uint16_t port);
