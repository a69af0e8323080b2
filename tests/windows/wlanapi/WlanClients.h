// The clients of the WLAN service, and the thread that notifies them.
#pragma once

#include <winsock2.h>
#include <windows.h>
#include <wlanapi.h>

#include <condition_variable>
#include <map>
#include <mutex>

#include "tests/windows/wlanapi/WlanFile.h"

// The one WLAN interface of the PC.
inline constexpr GUID kWlanInterface = {
    0x5B0C1A52, 0x8E47, 0x4D39, {0x9A, 0x6F, 0x21, 0x73, 0xC4, 0xE0, 0x5D, 0x18}};

struct WlanRegistration {
    DWORD source = WLAN_NOTIFICATION_SOURCE_NONE;
    bool ignoresDuplicates = false;
    WLAN_NOTIFICATION_CALLBACK callback = nullptr;
    void* context = nullptr;
    DWORD lastCode = 0;
};

class WlanClients {
  public:
    static WlanClients& Instance();

    HANDLE Open(const WlanFile& file);
    // Returns ERROR_INVALID_HANDLE for a client of an earlier run.
    DWORD Check(HANDLE handle, const WlanFile& file);
    // These wait for a callback of the client that is running.
    void Register(HANDLE handle, const WlanRegistration& registration);
    void Close(HANDLE handle);

  private:
    struct Client {
        DWORD run = 0;
        WlanRegistration registration;
        bool isInCallback = false;
    };

    [[noreturn]] void Watch(DWORD burst);
    void Notify(Client& client, DWORD code, std::unique_lock<std::mutex>& lock);

    std::mutex m_mutex;
    std::condition_variable m_returned;  // a callback has returned
    std::map<HANDLE, Client> m_clients;
    ULONG_PTR m_lastHandle = 0;
};
