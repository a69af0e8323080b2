// A console's or a viewer's end of a TCP connection to this process. Nothing here waits.
#pragma once

#include <cstddef>
#include <cstdint>

#include "fuzz/Target.h"
#include "testbed/Descriptor.h"

namespace fuzz {

class LoopbackClient {
  public:
    // False when nothing listens there.
    bool Connect(uint16_t port);
    bool IsOpen() const { return bool(m_socket); }
    // As much as the connection takes.
    void Send(Bytes bytes);
    // Drops what has come.
    void Drain();
    void FinishSending();
    // In good order, or with a reset.
    void Close(bool reset = false);

  private:
    testbed::Descriptor m_socket;
};

// A port of all interfaces that is free at this moment.
uint16_t UnusedPort();

// The threads of this process.
size_t CountThreads();

}  // namespace fuzz
