// One handle on the mailbox device: a connection to the firmware, and the requests that pend on it.
#pragma once

#include <condition_variable>
#include <list>
#include <mutex>
#include <string>
#include <thread>

#include "firmware/link/LinkProtocol.h"
#include "winhost/io/FileObject.h"
#include "winhost/io/FrameSender.h"

namespace winhost {

// Opens the device when `name` is its path, else ERROR_FILE_NOT_FOUND; so too when the firmware is not there.
DWORD OpenMailbox(const std::string& name, DWORD access, std::shared_ptr<FileObject>& file);

class MailboxHandle : public OverlappedFile {
  public:
    // Takes over the socket and a place that was reserved on the device.
    explicit MailboxHandle(int socket) : m_socket(socket), m_sender(socket) {}
    ~MailboxHandle() override;

    // After the firmware has gone both fail with ERROR_DEVICE_NOT_CONNECTED, and what was pending ends with
    // it. A message or an answer that is longer than its buffer fills it and ends with ERROR_MORE_DATA; the
    // rest is lost.
    DWORD Read(OverlappedRequest request, void* buffer, DWORD size) override;
    DWORD Control(OverlappedRequest request, DWORD code, const void* input, DWORD inputSize, void* output,
                  DWORD outputSize) override;
    bool Cancel(const OVERLAPPED* overlapped) override;
    // Ends what is pending as Cancel does. When it returns, no thread touches any of it.
    void OnClose() override;

  private:
    struct Pending {
        OverlappedRequest request;
        bool isRead;  // of the firmware's next message; else a request to the firmware
        char* buffer;
        DWORD room;
        uint32_t id = 0;  // on this handle, and for requests on the wire
    };
    using PendingList = std::list<Pending>;

    DWORD Enlist(PendingList& entry, uint32_t& id);
    DWORD SendOrWithdraw(const mpmlink::Header& header, const void* payload, uint32_t id);
    // Moves an entry out of the pending ones. The caller holds m_mutex and completes it when it doesn't any
    // more.
    void Withdraw(PendingList::iterator entry, PendingList& withdrawn);
    PendingList WithdrawAll();

    void RunReader();
    bool ReceiveFrame();
    PendingList::iterator AwaitTaker(std::unique_lock<std::mutex>& lock, const mpmlink::Header& header);
    bool ReceivePayload(std::unique_lock<std::mutex>& lock, DWORD size, DWORD wanted);

    const int m_socket;
    FrameSender m_sender;

    // Guards all below; never held while a frame is sent or a request is completed, so that the thread that
    // wakes by that does not run into it.
    std::mutex m_mutex;
    std::condition_variable m_readsChanged;
    PendingList m_pending;  // oldest first
    // Whom the reader fills right now; end() when it was cancelled meanwhile, and what still comes for it is
    // dropped.
    PendingList::iterator m_taker = m_pending.end();
    uint32_t m_lastId = 0;
    bool m_listening = false;
    bool m_closed = false;
    bool m_peerGone = false;
    std::thread m_reader;  // started by the first request
};

}  // namespace winhost
