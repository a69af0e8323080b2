// The service with its DASH listener up and its read loop running; the first report to the firmware is done.
#pragma once

#include <cstdint>

#include "service/CommandDispatch.h"
#include "tests/support/ConsoleClient.h"
#include "tests/support/ServiceFixture.h"

class DashFixture : public ServiceFixture {
  protected:
    // A stop closes the mailbox's gate, then its device; a session's last request may come before or after
    // each.
    static constexpr char kGateClosed[] =
        "Error Service is not signalled as Up, returning: 1062 to the caller";
    void AllowErrorsOfAStop() {
        AllowError(kGateClosed);
        AllowError("Error Invalid Handle, returning: 6 to the caller");
    }

    void Describe(winhost::PcDescription& description) override {
        ServiceFixture::Describe(description);
        description.dnsServers = {"192.168.1.53"};
    }

    // The firmware's version in tenths.
    void Start(uint32_t version) {
        firmware.Change([&](mpm::Settings& settings) { settings.uVORKVersion = version; });
        OpenMailbox();
        service->UpdatePlatformInfoToMPM();
        DetachedThreads& threads = service->m_detachedThreads;
        service->m_pMBDriverReadThreadObj =
            threads.StartOwned([service = service.get()] { ReadFromMailBoxDriverThread(service); });
        service->m_pDASHClientThreadObj = threads.StartOwned(
            [service = service.get()] { service->m_dashClientInterface.HandleDASHClientThread(); });
    }

    // Stops the service and ends it, as the process does.
    void Stop() {
        StopService();
        service.reset();
    }

    // The port that stands for 664.
    static uint16_t Port() { return Pc().Description().ports.at(664); }
    static void UsePort(uint16_t port) {
        Pc().Change([&](auto& description) { description.ports[664] = port; });
    }

    static ConsoleClient Connect() { return ConsoleClient(Port()); }
    // So many sessions have begun since the start.
    void AwaitSessions(size_t count) { AwaitLog("Processing DASH traffic for socket with address: ", count); }

    // The check for an idle console sleeps a second at a time.
    static void PassSeconds(int seconds) {
        while (seconds-- > 0)
            PassSleepOf(std::chrono::seconds(1));
    }
    static void Await1SecondSleeper() { ASSERT_TRUE(Clock().AwaitSleeper(std::chrono::seconds(1))); }
};
