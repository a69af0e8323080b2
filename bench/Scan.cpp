#include "bench/Scan.h"

#include <string>

#include "reporting/NetworkInventory.h"
#include "service/ZELService.h"
#include "winhost/pc/Pc.h"

namespace {

winhost::Adapter Interface(int number) {
    const std::string net = "10." + std::to_string(number / 200) + "." + std::to_string(number % 200);
    winhost::Adapter adapter;
    adapter.name = "{adapter-" + std::to_string(number) + "}";
    adapter.description = "Simulated Ethernet Adapter " + std::to_string(number);
    adapter.index = static_cast<uint32_t>(number + 2);
    adapter.mac = "02:00:5E:10:00:01";
    adapter.address = net + ".10";
    adapter.mask = "255.255.255.0";
    adapter.gateway = net + ".1";
    return adapter;
}

}  // namespace

void DescribeInterfaces(int count) {
    winhost::Pc::Instance().Change([&](winhost::PcDescription& pc) {
        pc.adapters.emplace();
        for (int number = 0; number < count; ++number)
            pc.adapters->push_back(Interface(number));
    });
}

void ScanOnce() {
    static ZELService service("");
    MultiNwInfo record;
    service.m_networkInventory.FillMultiNwInfo(record);
}
