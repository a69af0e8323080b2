// What Windows reports to the service: adapters, names, the registry, WMI. The reports to the firmware
// hold together whatever that is.
#include <winsock2.h>
#include <windows.h>

#include <cstring>
#include <string>

#include "fuzz/Input.h"
#include "fuzz/support/Host.h"
#include "mailbox/OsInfoRecord.h"
#include "reporting/NetworkInventory.h"
#include "reporting/OsInformation.h"
#include "winhost/core/Clock.h"
#include "winhost/pc/Pc.h"

namespace {

constexpr size_t kMostAdapters = 7;
constexpr char kCurrentVersion[] = "HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion";

// No text of Windows' holds a NUL.
std::string Text(fuzz::Input& from, size_t longest) {
    std::string text = fuzz::TextOf(from.Block());
    text = text.substr(0, text.find('\0'));
    return text.substr(0, longest);
}

std::string Dotted(fuzz::Input& from) {
    std::string text;
    for (int i = 0; i < 4; ++i)
        text += (i ? "." : "") + std::to_string(from.Byte());
    return text;
}

std::string DottedOrNone(fuzz::Input& from, bool there) {
    return there ? Dotted(from) : std::string();
}

winhost::Adapter TakeAdapter(fuzz::Input& from, uint32_t index) {
    winhost::Adapter adapter;
    const uint8_t shape = from.Byte();
    adapter.name = "{" + Text(from, 250) + "}";
    adapter.description = Text(from, 131);
    adapter.index = index;
    adapter.type = from.Byte();
    if (shape & 1) adapter.mac = "00:11:22:33:44:55";
    adapter.address = DottedOrNone(from, shape & 2);
    adapter.mask = DottedOrNone(from, shape & 2);
    adapter.gateway = DottedOrNone(from, shape & 4);
    adapter.dhcp = shape & 8;
    adapter.dhcpServer = DottedOrNone(from, shape & 8);
    adapter.speed = from.Number();
    adapter.operStatus = from.Byte() % 6;
    if (shape & 16)
        adapter.moreAddresses.push_back({Dotted(from), Dotted(from), bool(shape & 32), from.Byte()});
    return adapter;
}

void Describe(fuzz::Input& from, winhost::PcDescription& pc) {
    const uint8_t shape = from.Byte();
    const size_t adapters = from.Byte() % (kMostAdapters + 1);
    pc.adapters.emplace();
    for (uint32_t index = 1; index <= adapters && !from.AtEnd(); ++index)
        pc.adapters->push_back(TakeAdapter(from, index));
    pc.dnsServers.emplace();
    if (shape & 1) pc.dnsServers->push_back(Dotted(from));
    pc.computerName = "PC" + Text(from, 129);
    pc.dnsDomain = Text(from, 255);
    pc.osVersion =
        std::to_string(from.Byte()) + "." + std::to_string(from.Byte()) + "." + std::to_string(from.Word());
    pc.osType = from.Word();
    pc.processorArchitecture = from.Word();
    pc.wmiQueryError = shape & 2 ? 0x80041010 : 0;
    pc.timeZoneBiasMinutes = from.Byte() * 6 - 840;
    auto& values = pc.registry[kCurrentVersion];
    values.clear();
    for (const char* name : {"EditionID", "ProductName", "CSDVersion", "DisplayVersion"})
        if (from.Byte() & 1) values[name] = Text(from, 255);
}

template <size_t N>
bool IsTerminated(const char (&field)[N]) {
    return std::memchr(field, 0, N) != nullptr;
}

void CheckInventory(const MultiNwInfo& record) {
    for (size_t i = 0; i < FilledSlots(record); ++i) {
        const NwInfoEntry& entry = record.Entries[i];
        fuzz::Require(
            IsTerminated(entry.Name) && IsTerminated(entry.MACAddress) && IsTerminated(entry.DeviceID),
            "the texts of an interface end in their fields");
        fuzz::Require(entry.LinkTechnology == 2 || entry.LinkTechnology == 11,
                      "an interface is wired or not");
    }
}

}  // namespace

FUZZ_TARGET(platform) {
    fuzz::Host& host = fuzz::Host::Instance();
    ZELService& service = host.Service();
    fuzz::Input from(input);
    winhost::Pc::Instance().Change([&](winhost::PcDescription& pc) { Describe(from, pc); });
    MultiNwInfo record{};
    service.m_networkInventory.FillMultiNwInfo(record);
    CheckInventory(record);
    host.Pace().Patiently([&] { service.m_networkInventory.CommitNwInfo(record); });
    fuzz::Require(!service.m_networkStateStore.HasChanged(record) || record.Count == 0,
                  "a picture that was kept is the same when it is read again");
    fuzz::Require(!GetOsName().empty(), "the system always has a name");
    WriteOSInfoToMPM(service.m_WMIInterfaceObj);
    service.m_statusFile.UpdateStatusFile();
    host.Log().Look();
}
