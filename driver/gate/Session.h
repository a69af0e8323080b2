// The mailbox joined to the firmware, for as long as both are there.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "driver/gate/FirmwareConnection.h"
#include "driver/gate/GateDevice.h"
#include "base/Handles.h"

class Session {
  public:
    // `stop` ends it. Borrowed.
    explicit Session(HANDLE stop);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // Reaches the firmware and then attaches to the driver, which makes the mailbox present. The empty text,
    // or what is missing.
    std::string Attach(const sockaddr_in& firmware);

    // Carries until the firmware closes a connection, the driver fails or `stop` is set.
    void Run();

  private:
    // One opening of the mailbox (or none: the connection that shows whether the firmware is there).
    struct Link {
        uint32_t handle = 0;
        FirmwareConnection connection;
        std::thread reader;
        std::atomic<bool> closing{false};
    };

    bool AddLink(uint32_t handle);
    void RemoveLink(uint32_t handle);
    void Read(Link& link);
    bool TakeFrame(const Link& link, const mpmlink::Header& header, std::vector<uint8_t>& buffer);
    bool Forward(std::vector<uint8_t>& notice);
    void End(const char* reason);

    HANDLE m_stop;
    UniqueHandle m_over;
    std::atomic<bool> m_ended{false};
    sockaddr_in m_firmware{};
    GateDevice m_device;
    std::map<uint32_t, std::unique_ptr<Link>> m_links;  // by number of the handle
};
