#include "winhost/wlan/WlanService.h"

#include <algorithm>
#include <thread>

#include "winhost/core/Guid.h"
#include "winhost/pc/Pc.h"

namespace winhost {
namespace {

GUID GuidOfInterface(uint32_t number) {
    const auto interfaces = Pc::Instance().Description().wlanInterfaces;
    const auto guid = number < interfaces.size() ? ParseGuid(interfaces[number].guid) : std::nullopt;
    return guid.value_or(GUID{});
}

}  // namespace

HANDLE WlanService::Open() {
    const auto client = std::make_shared<WlanClient>();
    const HANDLE handle = HandleTable::Instance().Add(client);
    std::lock_guard lock(m_mutex);
    std::erase_if(m_clients, [](const auto& gone) { return gone.expired(); });
    m_clients.push_back(client);
    return handle;
}

DWORD WlanService::Register(WlanClient& client, DWORD source, bool ignoresDuplicates,
                            WLAN_NOTIFICATION_CALLBACK callback, void* context) {
    std::unique_lock lock(m_mutex);
    const DWORD before = client.m_registration.source;
    client.m_registration = {source, ignoresDuplicates, callback, context, std::nullopt};
    if (source == WLAN_NOTIFICATION_SOURCE_NONE || !callback) {
        m_changed.wait(lock, [&] { return !client.m_inCallback; });
    }
    return before;
}

std::vector<std::shared_ptr<WlanClient>> WlanService::LivingClients() {
    std::vector<std::shared_ptr<WlanClient>> living;
    for (const auto& entry : m_clients)
        if (auto client = entry.lock(); client && client->IsValid()) living.push_back(std::move(client));
    return living;
}

size_t WlanService::Listeners() {
    std::lock_guard lock(m_mutex);
    const auto clients = LivingClients();
    return static_cast<size_t>(std::count_if(clients.begin(), clients.end(), [](const auto& client) {
        return client->m_registration.source != WLAN_NOTIFICATION_SOURCE_NONE &&
               client->m_registration.callback;
    }));
}

void WlanService::Restart() {
    Pc::Instance().Change([](PcDescription& pc) { pc.wlanService = false; });
    Pc::Instance().Change([](PcDescription& pc) { pc.wlanService = true; });
}

void WlanService::Notify(const WlanNotification& notification) {
    std::unique_lock lock(m_mutex);
    if (!m_hasThread) {
        std::thread(&WlanService::Deliver, this).detach();
        m_hasThread = true;
    }
    const auto delivery = std::make_shared<Delivery>(Delivery{notification});
    m_queue.push_back(delivery);
    m_changed.notify_all();
    m_changed.wait(lock, [&] { return delivery->done; });
}

void WlanService::Deliver() {
    std::unique_lock lock(m_mutex);
    while (true) {
        m_changed.wait(lock, [this] { return !m_queue.empty(); });
        const auto delivery = m_queue.front();
        m_queue.pop_front();
        for (const auto& client : LivingClients())
            DeliverTo(*client, delivery->notification, lock);
        delivery->done = true;
        m_changed.notify_all();
    }
}

void WlanService::DeliverTo(WlanClient& client, const WlanNotification& notification,
                            std::unique_lock<std::mutex>& lock) {
    WlanClient::Registration& registration = client.m_registration;
    if (!registration.callback || !(registration.source & notification.source)) return;
    if (registration.ignoresDuplicates && registration.last == notification) return;
    registration.last = notification;
    const auto callback = registration.callback;
    void* const context = registration.context;
    client.m_inCallback = true;
    lock.unlock();
    {
        // In a place of its own, which is gone when the callback has returned.
        std::vector<char> bytes(notification.data.begin(), notification.data.end());
        const auto data = std::make_unique<WLAN_NOTIFICATION_DATA>();
        data->NotificationSource = notification.source;
        data->NotificationCode = notification.code;
        data->InterfaceGuid = GuidOfInterface(notification.interfaceNumber);
        data->dwDataSize = static_cast<DWORD>(bytes.size());
        data->pData = bytes.empty() ? nullptr : bytes.data();
        callback(data.get(), context);
    }
    lock.lock();
    client.m_inCallback = false;
    m_changed.notify_all();
}

}  // namespace winhost
