// A console or a viewer on the other end of a TCP connection, which never blocks: its owner must go on
// moving the PC's clock.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

class Wire {
  public:
    Wire() = default;
    ~Wire();
    Wire(const Wire&) = delete;
    Wire& operator=(const Wire&) = delete;

    // One try to connect to 127.0.0.1; true once there is a connection.
    bool Connect(uint16_t port);
    // Hands over what the connection takes at once.
    void Send(std::string_view bytes);
    // All that has come until now.
    const std::string& Received();
    // True when the service has closed the connection.
    bool IsClosed();
    void Close();

  private:
    int m_socket = -1;
    bool m_closed = false;
    std::string m_received;
};
