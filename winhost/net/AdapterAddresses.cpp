// The adapters as GetAdaptersAddresses lists them.
#include <winsock2.h>
#include <windows.h>
#include <iphlpapi.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

#include "testbed/Utf8.h"
#include "winhost/core/Gate.h"
#include "winhost/net/IpFields.h"
#include "winhost/net/NetworkSource.h"

using winhost::Adapter;

namespace {

constexpr ULONG kKnownFlags = GAA_FLAG_INCLUDE_PREFIX | GAA_FLAG_INCLUDE_GATEWAYS;
constexpr uint32_t kUpAtLeast = 4;  // of Adapter::operStatus
constexpr size_t kAlignment = alignof(IP_ADAPTER_ADDRESSES);
// Behind it the adapter's name, as on Windows.
constexpr char kInterfacesKey[] =
    "HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services\\Tcpip\\Parameters\\Interfaces\\";

// Places parts in the caller's buffer one behind the other. Without a buffer it only adds up their sizes.
class Room {
  public:
    explicit Room(void* buffer) : m_buffer(static_cast<char*>(buffer)) {}

    size_t Used() const { return m_used; }
    template <class Part>
    Part* Place(const Part& part, size_t count = 1) {
        static_assert(std::is_trivially_copyable_v<Part>);
        return static_cast<Part*>(Copy(&part, count * sizeof part));
    }
    WCHAR* PlaceText(const std::string& text) {
        const std::wstring wide = testbed::FromUtf8(text);
        return Place(*wide.c_str(), wide.size() + 1);
    }

  private:
    void* Copy(const void* bytes, size_t size) {
        void* const place = m_buffer ? m_buffer + m_used : nullptr;
        if (place) std::memcpy(place, bytes, size);
        m_used += (size + kAlignment - 1) / kAlignment * kAlignment;
        return place;
    }

    char* const m_buffer;
    size_t m_used = 0;
};

// The suffix that was set by hand comes before the one that DHCP has given.
std::string SuffixOf(const Adapter& adapter) {
    return winhost::Pc::Instance().Get([&](const winhost::PcDescription& pc) -> std::string {
        const auto key = pc.registry.find(kInterfacesKey + adapter.name);
        if (key == pc.registry.end()) return {};
        for (const char* name : {"Domain", "DhcpDomain"})
            if (const auto value = key->second.find(name);
                value != key->second.end() && !value->second.empty())
                return value->second;
        return {};
    });
}

SOCKET_ADDRESS PlaceAddress(Room& room, const std::string& address) {
    sockaddr_in name{};
    name.sin_family = AF_INET;
    name.sin_addr.s_addr = winhost::AddressWord(address);
    return {reinterpret_cast<sockaddr*>(room.Place(name)), static_cast<INT>(sizeof name)};
}

// Appends to the list whose last pointer is `end`, which is null when there is no buffer.
void PlaceUnicast(Room& room, PIP_ADAPTER_UNICAST_ADDRESS_LH*& end, const std::string& address,
                  const std::string& mask) {
    IP_ADAPTER_UNICAST_ADDRESS_LH entry{};
    entry.Length = sizeof entry;
    entry.Address = PlaceAddress(room, address);
    entry.OnLinkPrefixLength = static_cast<BYTE>(__builtin_popcount(winhost::AddressWord(mask)));
    PIP_ADAPTER_UNICAST_ADDRESS_LH const placed = room.Place(entry);
    if (!placed) return;
    *end = placed;
    end = &placed->Next;
}

void PlaceLists(Room& room, const Adapter& adapter, ULONG flags, IP_ADAPTER_ADDRESSES& entry) {
    PIP_ADAPTER_UNICAST_ADDRESS_LH* end = &entry.FirstUnicastAddress;
    if (!adapter.address.empty()) PlaceUnicast(room, end, adapter.address, adapter.mask);
    for (const winhost::AdapterAddress& more : adapter.moreAddresses)
        PlaceUnicast(room, end, more.address, more.mask);
    if (flags & GAA_FLAG_INCLUDE_GATEWAYS && !adapter.gateway.empty()) {
        IP_ADAPTER_GATEWAY_ADDRESS_LH gateway{};
        gateway.Length = sizeof gateway;
        gateway.Address = PlaceAddress(room, adapter.gateway);
        entry.FirstGatewayAddress = room.Place(gateway);
    }
}

// Returns where it lies; null without a buffer.
PIP_ADAPTER_ADDRESSES PlaceAdapter(Room& room, const Adapter& adapter, ULONG flags) {
    IP_ADAPTER_ADDRESSES entry{};
    entry.Length = sizeof entry;
    entry.IfIndex = adapter.index;
    const auto mac = winhost::MacBytes(adapter.mac);
    entry.PhysicalAddressLength = static_cast<ULONG>(std::min(mac.size(), std::size(entry.PhysicalAddress)));
    std::copy_n(mac.begin(), entry.PhysicalAddressLength, entry.PhysicalAddress);
    entry.Mtu = adapter.mtu;
    entry.IfType = adapter.type;
    entry.OperStatus = adapter.operStatus >= kUpAtLeast ? IfOperStatusUp : IfOperStatusDown;
    entry.TransmitLinkSpeed = entry.ReceiveLinkSpeed = adapter.speed;
    PIP_ADAPTER_ADDRESSES const placed = room.Place(entry);
    entry.AdapterName = room.Place(*adapter.name.c_str(), adapter.name.size() + 1);
    entry.DnsSuffix = room.PlaceText(SuffixOf(adapter));
    entry.Description = room.PlaceText(adapter.description);
    entry.FriendlyName = room.PlaceText(adapter.description);
    if (!placed) {
        PlaceLists(room, adapter, flags, entry);
        return nullptr;
    }
    *placed = entry;
    PlaceLists(room, adapter, flags, *placed);
    return placed;
}

void PlaceAll(Room& room, const std::vector<Adapter>& adapters, ULONG flags) {
    PIP_ADAPTER_ADDRESSES last = nullptr;
    for (const Adapter& adapter : adapters) {
        PIP_ADAPTER_ADDRESSES const placed = PlaceAdapter(room, adapter, flags);
        if (last) last->Next = placed;
        last = placed;
    }
}

}  // namespace

ULONG GetAdaptersAddresses(ULONG Family, ULONG Flags, PVOID Reserved, PIP_ADAPTER_ADDRESSES AdapterAddresses,
                           PULONG SizePointer) {
    WINHOST_GATE_CODE("GetAdaptersAddresses");
    if (!SizePointer || Reserved) return ERROR_INVALID_PARAMETER;
    if ((Family != AF_UNSPEC && Family != AF_INET) || Flags & ~kKnownFlags) return ERROR_NOT_SUPPORTED;
    return winhost::Guarded([&]() -> DWORD {
        const auto adapters = winhost::Adapters();
        if (adapters.empty()) return ERROR_NO_DATA;
        Room measured(nullptr);
        PlaceAll(measured, adapters, Flags);
        if (!winhost::HasRoom(AdapterAddresses, SizePointer, measured.Used())) return ERROR_BUFFER_OVERFLOW;
        Room room(AdapterAddresses);
        PlaceAll(room, adapters, Flags);
        return ERROR_SUCCESS;
    });
}
