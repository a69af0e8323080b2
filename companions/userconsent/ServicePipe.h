// The client's end of the service's consent pipe.
#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "base/Handles.h"

// Returns true when the error means that the service has closed its end.
bool HasHungUp(DWORD error);

class ServicePipe {
  public:
    using Patience = std::optional<std::chrono::duration<double>>;  // none: unlimited

    // Blocks until the service asks a question: its pipe exists and has no client yet. Returns 0 or the
    // error, which is WAIT_TIMEOUT when `patience` has passed.
    DWORD Connect(Patience patience);
    // Reads one message. Returns 0 or the error, which is ERROR_MORE_DATA for a message that is longer than
    // any the service sends.
    DWORD Read(std::string& message);
    // Writes one message and blocks until the service has read it. Returns 0 or the error.
    DWORD Write(const std::string& message);
    // Blocks until the service has closed the pipe.
    void AwaitEnd();

  private:
    UniqueFileHandle m_pipe;
};
