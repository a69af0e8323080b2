// The PC's WLAN service: its listeners, and the thread that notifies them.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <wlanapi.h>

#include "winhost/core/HandleTable.h"
#include "winhost/core/Singleton.h"
#include "winhost/pc/Pc.h"

namespace winhost {

struct WlanNotification {
    uint32_t code = 0;
    uint32_t source = WLAN_NOTIFICATION_SOURCE_ACM;
    uint32_t interfaceNumber = 0;  // of the PC's WLAN interfaces; one that it hasn't has the GUID of zeros
    std::string data;              // what pData points to

    bool operator==(const WlanNotification&) const = default;
};

class WlanClient : public Object {
  public:
    bool IsClosedByCloseHandle() const override { return false; }

    // False once the service that the client was opened at has stopped. A restart does not bring it back.
    bool IsValid() const { return m_serviceStops == Pc::Instance().WlanServiceStops(); }

  private:
    friend class WlanService;
    struct Registration {
        DWORD source = WLAN_NOTIFICATION_SOURCE_NONE;
        bool ignoresDuplicates = false;
        WLAN_NOTIFICATION_CALLBACK callback = nullptr;
        void* context = nullptr;
        std::optional<WlanNotification> last;
    };
    const uint64_t m_serviceStops = Pc::Instance().WlanServiceStops();
    // Guarded by the service's mutex.
    Registration m_registration;
    bool m_inCallback = false;
};

class WlanService {
  public:
    static WlanService& Instance() { return Singleton<WlanService>(); }

    // Notifies every client that listens to the source. Returns when their callbacks have returned, so that
    // it must not be called from one.
    void Notify(const WlanNotification& notification);

    HANDLE Open();  // null when there are no handles left
    // The source that the client listened to. Without a callback or a source it listens no more, and this
    // waits for a callback that is running.
    DWORD Register(WlanClient& client, DWORD source, bool ignoresDuplicates,
                   WLAN_NOTIFICATION_CALLBACK callback, void* context);
    // So many clients listen: what a test waits for and looks at.
    size_t Listeners();
    // Stops the service and starts it again. Every client and registration of before is invalid afterwards.
    void Restart();

  private:
    struct Delivery {
        WlanNotification notification;
        bool done = false;
    };

    [[noreturn]] void Deliver();
    void DeliverTo(WlanClient& client, const WlanNotification& notification,
                   std::unique_lock<std::mutex>& lock);
    // Those whose handle is open and valid.
    std::vector<std::shared_ptr<WlanClient>> LivingClients();

    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_hasThread = false;
    std::vector<std::weak_ptr<WlanClient>> m_clients;
    std::deque<std::shared_ptr<Delivery>> m_queue;
};

}  // namespace winhost
