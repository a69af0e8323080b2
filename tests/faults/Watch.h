// Whether the service has come to rest.
#pragma once

#include <cstdint>

class Watch {
  public:
    // So many looks in a row, this one included, have found it making no call and all its threads blocked.
    // Threads that only repeat a call count as blocked, and those that wait for a program of the test do not.
    int Look();

  private:
    uint64_t m_activity = UINT64_MAX;
    int m_quiet = 0;
};
