// The events that other threads post to one waiting thread, behind one Windows event. An event that is posted
// twice before the waiting thread takes it is delivered once.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <cstdint>
#include <mutex>

#include "base/Handles.h"

class PostedEvents {
  public:
    // Accepts posts from now on, and forgets earlier ones. Called before the waiting thread starts.
    void Open();
    // Creates the Windows event, signalled when something has been posted since Open. Returns null when it
    // cannot be created.
    HANDLE Create(const char* name);
    // Refuses posts from now on.
    void Close();

    enum class Outcome { Posted, NobodyWaits, Failed };
    // Posts an event, a number from 1 to 31. Failed leaves its error in GetLastError. Any thread; never
    // blocks.
    Outcome Post(uint32_t event);

    // Blocks until something is posted. Returns false when the wait fails. The waiting thread.
    bool Await() const;
    // Resets the Windows event and returns what has been posted. The waiting thread.
    class Taken;
    Taken Take();

  private:
    std::mutex m_mutex;  // keeps the handle valid while another thread posts
    bool m_isOpen = false;
    uint32_t m_posted = 0;  // one bit for each event
    UniqueHandle m_event;
};

class PostedEvents::Taken {
  public:
    explicit Taken(uint32_t posted) : m_posted(posted) {}
    bool Has(uint32_t event) const { return (m_posted >> event & 1) != 0; }

  private:
    uint32_t m_posted;
};
