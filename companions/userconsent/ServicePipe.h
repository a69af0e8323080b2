// The client's end of the service's consent pipe.
#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "base/Handles.h"

// Whether an error means that the service has closed its end.
bool HasHungUp(DWORD error);

class ServicePipe {
  public:
    using Patience = std::optional<std::chrono::duration<double>>;  // none: for ever

    // Waits until the service asks somebody: its pipe is there and has no client yet. 0, or the error:
    // WAIT_TIMEOUT when the patience is over.
    DWORD Connect(Patience patience);
    // One message. 0, or the error; ERROR_MORE_DATA for one that is longer than the service sends.
    DWORD Read(std::string& message);
    // Returns when the service has read it. 0, or the error.
    DWORD Write(const std::string& message);
    // Returns when the service has closed the pipe.
    void AwaitEnd();

  private:
    UniqueFileHandle m_pipe;
};
