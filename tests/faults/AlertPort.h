// A management console that takes alerts: a TCP port of which the service's bytes are read. It never blocks.
#pragma once

#include <cstdint>
#include <string>

#include "testbed/Descriptor.h"

class AlertPort {
  public:
    AlertPort();
    uint16_t Number() const;
    // All that the first connection has brought until now.
    const std::string& Received();

  private:
    testbed::Descriptor m_listener, m_connection;
    std::string m_received;
};
