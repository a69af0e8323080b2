// What ends a wait on descriptors from another thread.
#pragma once

#include <sys/eventfd.h>

#include "testbed/Descriptor.h"

namespace winhost {

class Interrupt {
  public:
    bool IsMade() const { return static_cast<bool>(m_event); }
    // Every wait with this ends, until Clear.
    void Raise() { eventfd_write(m_event.Get(), 1); }
    void Clear() {
        eventfd_t count;
        eventfd_read(m_event.Get(), &count);
    }
    // Readable while it is raised.
    int Get() const { return m_event.Get(); }

  private:
    const testbed::Descriptor m_event{eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
};

}  // namespace winhost
