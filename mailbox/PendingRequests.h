// The requests that the driver has not completed yet, each with the thread that made it. A thread that waits
// for another thread registers this too, so that a request can be cancelled for all who wait for it.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <mutex>
#include <thread>

class PendingRequests {
  public:
    // Registers a request of the calling thread while it exists, from before it is made until it has ended.
    // The device and the OVERLAPPED must outlive it.
    class Request {
      public:
        Request(PendingRequests& registry, HANDLE device, OVERLAPPED& overlapped);
        ~Request();
        Request(const Request&) = delete;
        Request& operator=(const Request&) = delete;

      private:
        friend class PendingRequests;
        PendingRequests& m_registry;
        const std::thread::id m_thread = std::this_thread::get_id();
        const HANDLE m_device;
        OVERLAPPED& m_overlapped;
        Request* m_next = nullptr;
    };

    // Registers, while it exists, that the calling thread is blocked until `awaited` has advanced.
    class Wait {
      public:
        Wait(PendingRequests& registry, std::thread::id awaited);
        ~Wait();
        Wait(const Wait&) = delete;
        Wait& operator=(const Wait&) = delete;

      private:
        friend class PendingRequests;
        PendingRequests& m_registry;
        const std::thread::id m_thread = std::this_thread::get_id();
        const std::thread::id m_awaited;
        Wait* m_next = nullptr;
    };

    // Cancels the request of this thread and, when it waits for another thread, the request of that thread.
    // The cancelled requests end with 995. Any thread.
    void CancelFor(std::thread::id thread);

  private:
    template <class Entry>
    void Add(Entry*& first, Entry& entry);
    template <class Entry>
    void Remove(Entry*& first, const Entry& entry);

    // The entries are on the stacks of their threads: registering needs no memory and cannot fail. A request
    // is cancelled under the lock, because its OVERLAPPED may be gone afterwards.
    std::mutex m_mutex;
    Request* m_requests = nullptr;
    Wait* m_waits = nullptr;
};
