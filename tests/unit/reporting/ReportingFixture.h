// The service on a PC whose network the test lays out.
#pragma once

#include <string>
#include <vector>

#include "tests/support/ServiceFixture.h"

class ReportingFixture : public ServiceFixture {
  protected:
    void Describe(winhost::PcDescription& description) override {
        ServiceFixture::Describe(description);
        description.dnsServers = {"192.168.7.53"};
    }

    static winhost::Adapter Wired(uint32_t index, const std::string& address, const std::string& gateway) {
        winhost::Adapter adapter;
        adapter.name = "{adapter-" + std::to_string(index) + "}";
        adapter.description = "Wired adapter " + std::to_string(index);
        adapter.index = index;
        adapter.mac = "00:11:22:33:44:55";
        adapter.address = address;
        adapter.mask = "255.255.255.0";
        adapter.gateway = gateway;
        return adapter;
    }

    static void SetAdapters(const std::vector<winhost::Adapter>& adapters) {
        Pc().Change([&](auto& description) { description.adapters = adapters; });
    }
    static void SetDnsServers(const std::vector<std::string>& servers) {
        Pc().Change([&](auto& description) { description.dnsServers = servers; });
    }
};
