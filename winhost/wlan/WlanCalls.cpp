// The calls of the WLAN API.
#include <algorithm>
#include <atomic>
#include <cstdlib>

#include "winhost/core/Gate.h"
#include "winhost/core/Guid.h"
#include "winhost/core/WideText.h"
#include "winhost/pc/Pc.h"
#include "winhost/wlan/WlanMemory.h"

using winhost::HandleTable;
using winhost::WlanClient;
using winhost::WlanService;

namespace {

bool IsServiceRunning() {
    return winhost::Pc::Instance().Description().wlanService;
}

void Fill(WLAN_INTERFACE_INFO& info, const winhost::WlanInterface& wlan) {
    info = {};
    info.InterfaceGuid = winhost::ParseGuid(wlan.guid).value_or(GUID{});
    winhost::PutWide(info.strInterfaceDescription, wlan.description);
    info.isState = static_cast<WLAN_INTERFACE_STATE>(wlan.state);
}

std::atomic<size_t> blocksInUse{0};

}  // namespace

namespace winhost {

void* AllocateWlanMemory(size_t size) {
    void* const memory = std::calloc(1, size);
    if (memory) ++blocksInUse;
    return memory;
}

size_t WlanMemoryInUse() {
    return blocksInUse;
}

std::shared_ptr<WlanClient> FindWlanClient(HANDLE handle, DWORD& error) {
    const auto client = HandleTable::Instance().Find<WlanClient>(handle);
    error = !client               ? ERROR_INVALID_HANDLE
            : !IsServiceRunning() ? ERROR_SERVICE_NOT_ACTIVE
            : !client->IsValid()  ? ERROR_INVALID_HANDLE
                                  : ERROR_SUCCESS;
    return error == ERROR_SUCCESS ? client : nullptr;
}

}  // namespace winhost

DWORD WlanOpenHandle(DWORD dwClientVersion, PVOID pReserved, PDWORD pdwNegotiatedVersion,
                     PHANDLE phClientHandle) {
    WINHOST_GATE_CODE("WlanOpenHandle");
    if (dwClientVersion == 0 || pReserved || !pdwNegotiatedVersion || !phClientHandle)
        return ERROR_INVALID_PARAMETER;
    if (!IsServiceRunning()) return ERROR_SERVICE_NOT_ACTIVE;
    *phClientHandle = WlanService::Instance().Open();
    if (!*phClientHandle) return ERROR_NOT_ENOUGH_MEMORY;
    *pdwNegotiatedVersion = std::min<DWORD>(dwClientVersion, WLAN_API_VERSION_2_0);
    return ERROR_SUCCESS;
}

DWORD WlanCloseHandle(HANDLE hClientHandle, PVOID pReserved) {
    WINHOST_GATE_CODE("WlanCloseHandle");
    if (pReserved) return ERROR_INVALID_PARAMETER;
    const auto client = HandleTable::Instance().Find<WlanClient>(hClientHandle);
    if (!client) return ERROR_INVALID_HANDLE;
    WlanService::Instance().Register(*client, WLAN_NOTIFICATION_SOURCE_NONE, false, nullptr, nullptr);
    // A client of an earlier run of the service is freed all the same.
    const bool closed = HandleTable::Instance().Close<WlanClient>(hClientHandle);
    return closed && client->IsValid() ? ERROR_SUCCESS : ERROR_INVALID_HANDLE;
}

DWORD WlanEnumInterfaces(HANDLE hClientHandle, PVOID pReserved, PWLAN_INTERFACE_INFO_LIST* ppInterfaceList) {
    WINHOST_GATE_CODE("WlanEnumInterfaces");
    if (pReserved || !ppInterfaceList) return ERROR_INVALID_PARAMETER;
    DWORD error = ERROR_SUCCESS;
    if (!winhost::FindWlanClient(hClientHandle, error)) return error;
    const auto pc = winhost::Pc::Instance().Description();
    const size_t size =
        sizeof(WLAN_INTERFACE_INFO_LIST) + pc.wlanInterfaces.size() * sizeof(WLAN_INTERFACE_INFO);
    auto* list = static_cast<WLAN_INTERFACE_INFO_LIST*>(winhost::AllocateWlanMemory(size));
    if (!list) return ERROR_NOT_ENOUGH_MEMORY;
    list->dwNumberOfItems = static_cast<DWORD>(pc.wlanInterfaces.size());
    WLAN_INTERFACE_INFO* info = list->InterfaceInfo;
    for (const auto& wlan : pc.wlanInterfaces)
        Fill(*info++, wlan);
    *ppInterfaceList = list;
    return ERROR_SUCCESS;
}

DWORD WlanRegisterNotification(HANDLE hClientHandle, DWORD dwNotifSource, BOOL bIgnoreDuplicate,
                               WLAN_NOTIFICATION_CALLBACK funcCallback, PVOID pCallbackContext,
                               PVOID pReserved, PDWORD pdwPrevNotifSource) {
    WINHOST_GATE_CODE("WlanRegisterNotification");
    if (pReserved) return ERROR_INVALID_PARAMETER;
    DWORD error = ERROR_SUCCESS;
    const auto client = winhost::FindWlanClient(hClientHandle, error);
    if (!client) return error;
    const DWORD before = WlanService::Instance().Register(*client, dwNotifSource, bIgnoreDuplicate != FALSE,
                                                          funcCallback, pCallbackContext);
    if (pdwPrevNotifSource) *pdwPrevNotifSource = before;
    return ERROR_SUCCESS;
}

VOID WlanFreeMemory(PVOID pMemory) {
    WINHOST_GATE_PASS("WlanFreeMemory");
    if (!pMemory) return;
    --blocksInUse;
    std::free(pMemory);
}
