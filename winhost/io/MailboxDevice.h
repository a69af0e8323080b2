// The mailbox device as the PC sees it: for tests and the control socket.
#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace winhost {

class CallingThread;
class MailboxHandle;

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

    // False when there are kMaxHandles already.
    bool Add(const std::shared_ptr<MailboxHandle>& handle);
    void Remove(const MailboxHandle& handle);

    // Completes what the firmware has sent already, for a thread that asks for its request without waiting.
    void Work();
    // When it returns, nothing touches what those requests were to fill.
    void CancelRequestsOf(const CallingThread& thread);

    size_t OpenHandles() const;
    size_t PendingReads() const { return m_pendingReads; }
    size_t PendingRequests() const { return m_pendingRequests; }

    // From now on such calls end at once, successfully, with 0 bytes and without the firmware, instead of
    // pending.
    void CompleteReadsAtOnce(bool atOnce) { m_readsAtOnce = atOnce; }
    void CompleteRequestsAtOnce(bool atOnce) { m_requestsAtOnce = atOnce; }

    // From now on the list of interfaces holds these paths instead of the device's own; none: its own again.
    void ListInstead(std::vector<std::string> paths);
    std::vector<std::string> ListedPaths() const;

  private:
    friend class MailboxHandle;
    MailboxDevice() = default;
    std::vector<std::shared_ptr<MailboxHandle>> Handles() const;

    mutable std::mutex m_mutex;
    std::vector<std::shared_ptr<MailboxHandle>> m_handles;  // that are open
    std::vector<std::string> m_listedInstead;
    std::atomic<size_t> m_pendingReads{0};
    std::atomic<size_t> m_pendingRequests{0};
    std::atomic<bool> m_readsAtOnce{false};
    std::atomic<bool> m_requestsAtOnce{false};
};

}  // namespace winhost
