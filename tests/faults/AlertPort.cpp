#include "tests/faults/AlertPort.h"

#include <poll.h>

#include "testbed/Sockets.h"

AlertPort::AlertPort() : m_listener(testbed::ListenTcp(0, 1)) {}

uint16_t AlertPort::Number() const {
    return testbed::PortOf(m_listener);
}

const std::string& AlertPort::Received() {
    pollfd waiting{m_listener.Get(), POLLIN, 0};
    if (!m_connection && poll(&waiting, 1, 0) == 1)
        m_connection = testbed::Descriptor(accept4(m_listener.Get(), nullptr, nullptr, SOCK_CLOEXEC));
    char bytes[4096];
    ssize_t count = 0;
    while (m_connection && (count = recv(m_connection.Get(), bytes, sizeof bytes, MSG_DONTWAIT)) > 0)
        m_received.append(bytes, static_cast<size_t>(count));
    return m_received;
}
