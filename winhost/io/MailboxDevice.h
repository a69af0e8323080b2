// The mailbox device as the PC sees it: for tests and the control socket.
#pragma once

#include <atomic>
#include <cstddef>

namespace winhost {

class MailboxDevice {
  public:
    // One more is refused with ERROR_ACCESS_DENIED, which is how a driver refuses an open that it has no room
    // for.
    static constexpr size_t kMaxHandles = 2;
    static constexpr const char* kPath = R"(\\?\root#system#0000#{70a9067b-708f-443c-84ba-bc391fdbf72b})";

    static MailboxDevice& Instance();

    // The interface is there exactly while the firmware's address accepts connections. Makes one and drops
    // it.
    bool IsPresent() const;

    // A place for one more handle; false when all are taken.
    bool Reserve();
    void Release() { --m_openHandles; }

    size_t OpenHandles() const { return m_openHandles; }
    size_t PendingReads() const { return m_pendingReads; }
    size_t PendingRequests() const { return m_pendingRequests; }

    // From now on such calls end at once, successfully, with 0 bytes and without the firmware, instead of
    // pending.
    void CompleteReadsAtOnce(bool atOnce) { m_readsAtOnce = atOnce; }
    void CompleteRequestsAtOnce(bool atOnce) { m_requestsAtOnce = atOnce; }

  private:
    friend class MailboxHandle;
    MailboxDevice() = default;

    std::atomic<size_t> m_openHandles{0};
    std::atomic<size_t> m_pendingReads{0};
    std::atomic<size_t> m_pendingRequests{0};
    std::atomic<bool> m_readsAtOnce{false};
    std::atomic<bool> m_requestsAtOnce{false};
};

}  // namespace winhost
