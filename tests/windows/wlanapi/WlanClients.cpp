#include "tests/windows/wlanapi/WlanClients.h"

#include <sstream>
#include <thread>

namespace {

constexpr DWORD kPollMilliseconds = 20;

}  // namespace

// Never destroyed: its thread runs to the end of the process.
WlanClients& WlanClients::Instance() {
    static WlanClients& instance = *new WlanClients;
    return instance;
}

HANDLE WlanClients::Open(const WlanFile& file) {
    const std::lock_guard lock(m_mutex);
    // What the file announced before the first client is not sent.
    if (m_lastHandle == 0) std::thread(&WlanClients::Watch, this, file.Number("burst")).detach();
    const auto handle = reinterpret_cast<HANDLE>(++m_lastHandle);
    m_clients[handle].run = file.Number("run");
    return handle;
}

DWORD WlanClients::Check(HANDLE handle, const WlanFile& file) {
    const std::lock_guard lock(m_mutex);
    const auto client = m_clients.find(handle);
    if (client == m_clients.end()) return ERROR_INVALID_HANDLE;
    if (file.Number("run") == 0) return ERROR_SERVICE_NOT_ACTIVE;
    return client->second.run == file.Number("run") ? ERROR_SUCCESS : ERROR_INVALID_HANDLE;
}

void WlanClients::Register(HANDLE handle, const WlanRegistration& registration) {
    std::unique_lock lock(m_mutex);
    Client& client = m_clients[handle];
    client.registration = registration;
    m_returned.wait(lock, [&] { return !client.isInCallback; });
}

void WlanClients::Close(HANDLE handle) {
    Register(handle, {});
    const std::lock_guard lock(m_mutex);
    m_clients.erase(handle);
}

void WlanClients::Watch(DWORD burst) {
    while (true) {
        Sleep(kPollMilliseconds);
        const WlanFile file = WlanFile::Read();
        if (file.Number("burst") == burst) continue;
        burst = file.Number("burst");
        std::unique_lock lock(m_mutex);
        std::istringstream codes(file.Text("notify"));
        for (DWORD code = 0; codes >> code;) {
            // A callback may open and close other clients, so that each is looked up.
            for (ULONG_PTR number = 1; number <= m_lastHandle; ++number) {
                const auto found = m_clients.find(reinterpret_cast<HANDLE>(number));
                if (found != m_clients.end() && found->second.run == file.Number("run"))
                    Notify(found->second, code, lock);
            }
        }
    }
}

// The lock is not held during the callback. The client stays until then, because its end waits.
void WlanClients::Notify(Client& client, DWORD code, std::unique_lock<std::mutex>& lock) {
    WlanRegistration& registration = client.registration;
    if (!registration.callback || !(registration.source & WLAN_NOTIFICATION_SOURCE_ACM)) return;
    if (registration.ignoresDuplicates && registration.lastCode == code) return;
    registration.lastCode = code;
    const WlanRegistration present = registration;
    WLAN_NOTIFICATION_DATA data{WLAN_NOTIFICATION_SOURCE_ACM, code, kWlanInterface, 0, nullptr};
    client.isInCallback = true;
    lock.unlock();
    present.callback(&data, present.context);
    lock.lock();
    client.isInCallback = false;
    m_returned.notify_all();
}
