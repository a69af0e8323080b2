// The firmware that asks the host for its screen, frame by frame, and drops what comes.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <span>
#include <string>

#include "firmware/Firmware.h"

class Puller {
  public:
    // Offers the mailbox at this address.
    explicit Puller(const std::string& address);

    // All of these throw std::runtime_error when the host does not do its part.
    void AwaitHost();
    // Enables KVM and asks for the display's configuration, until the host has sent it.
    void BeginSession();
    void EndSession();
    // From the command to the last chunk of one frame. Returns the frame's bytes.
    size_t Pull();

  private:
    static constexpr std::chrono::seconds kPatience{30};

    void TakeChunk(std::span<const uint8_t> record);
    void Await(const std::string& request, size_t count);

    mpm::Firmware m_firmware;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_isComplete = false;
    std::string m_fault;
    // Of the frame that is being pulled.
    uint32_t m_left = 0, m_size = 0, m_taken = 0;
};
