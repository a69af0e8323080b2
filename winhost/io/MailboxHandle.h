// One handle on the mailbox device: a connection to the firmware, and the requests that pend on it.
#pragma once

#include <deque>
#include <functional>
#include <list>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "firmware/link/LinkMemory.h"
#include "firmware/link/LinkProtocol.h"
#include "testbed/Descriptor.h"
#include "testbed/SharedMemory.h"
#include "winhost/io/FileObject.h"
#include "winhost/pipe/Interrupt.h"

namespace winhost {

// Opens the device when `name` is its path, else ERROR_FILE_NOT_FOUND; so too when the firmware is not there.
DWORD OpenMailbox(const std::string& name, DWORD access, std::shared_ptr<FileObject>& file);

class MailboxHandle : public OverlappedFile {
  public:
    explicit MailboxHandle(testbed::Descriptor socket) : m_socket(std::move(socket)) {}
    // False when the host had no descriptor left for it.
    bool IsReady() const { return m_interrupt.IsMade(); }

    // Both pend at once. A frame that the socket has no room for is kept, and sent by the threads that wait
    // for this handle; with kMostUnsent of them kept, ERROR_NO_SYSTEM_RESOURCES. After the firmware has gone
    // both fail with ERROR_DEVICE_NOT_CONNECTED, and what was pending ends with it. A message or an answer
    // that is longer than its buffer fills it and ends with ERROR_MORE_DATA; the rest is lost.
    DWORD Read(OverlappedRequest request, void* buffer, DWORD size) override;
    DWORD Control(OverlappedRequest request, DWORD code, const void* input, DWORD inputSize, void* output,
                  DWORD outputSize) override;
    bool Cancel(const OVERLAPPED* overlapped) override;
    // Ends those that this thread has made as Cancel does.
    void CancelRequestsOf(const CallingThread& thread);
    // Ends what is pending as Cancel does. When it returns, no thread touches any of it.
    void OnClose() override;

    // Sends what is kept and receives one frame, as far as the socket allows.
    bool Work() override;

  private:
    static constexpr size_t kMostUnsent = 32;
    struct Pending {
        OverlappedRequest request;
        char* buffer;
        DWORD room;
        uint32_t id = 0;  // on the wire; 0 for a read of the firmware's next message
        bool IsRead() const { return id == 0; }
    };
    using PendingList = std::list<Pending>;
    enum class Progress { Done, NotYet, Broken };

    void Poll(const RealTime* until) override;
    void Wake() override { m_interrupt.Raise(); }
    void PassOn() override;

    // The caller of each of these holds m_mutex, and completes what was withdrawn when it doesn't any more.
    DWORD Pend(Pending request, mpmlink::Header frame, const void* payload);
    DWORD Send(const mpmlink::Header& header, const void* payload);
    bool SendWithMemory(const mpmlink::Header& header, const void* payload);
    void SendKept();
    void Withdraw(PendingList::iterator entry, PendingList& withdrawn);
    PendingList WithdrawAll();
    bool CancelThose(const std::function<bool(const OverlappedRequest&)>& matches);
    Progress ReceiveFrame();
    Progress ReceiveSome(void* into, size_t room);
    bool FindTaker();
    bool IsWellFormed() const;
    std::span<const uint8_t> BytesInMemory() const;
    bool IsStalled() const { return m_received == sizeof m_header && !m_isAddressed; }

    const testbed::Descriptor m_socket;
    Interrupt m_interrupt;
    std::mutex m_working;  // held by the thread that works, also while it completes requests

    // Guards all below; taken after m_working. Never held while a request is completed, so that the thread
    // that wakes by that does not run into it.
    std::mutex m_mutex;
    PendingList m_pending;  // oldest first
    std::deque<std::string> m_unsent;
    // Offered to the firmware with the first frame that needs it; empty over TCP.
    std::optional<testbed::SharedMemory<mpmlink::LinkMemory>> m_memory;
    uint32_t m_lastId = 0;
    bool m_isListening = false;
    bool m_isClosed = false;

    // The frame that is on its way, and the request that it fills: end() when that was cancelled, so that
    // what still comes is dropped.
    mpmlink::Header m_header{};
    size_t m_received = 0;  // of header and payload
    char m_buffer[512];
    std::string_view m_ahead;  // in the buffer: what has come behind it
    bool m_isAddressed = false;
    PendingList::iterator m_taker = m_pending.end();
    DWORD m_wanted = 0;
    DWORD m_error = 0;
};

}  // namespace winhost
