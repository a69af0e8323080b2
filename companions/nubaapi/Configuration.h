// What the functions of the library store, and what a connection needs of it.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <string>

#include "cloud/NubaApi.h"
#include "companions/nubaapi/Sockets.h"
#include "companions/nubaapi/Tls.h"

struct InitData {
    std::string localHost, cloudHost, port;
    TlsFiles files;
    NubaFilter_Fn filter = nullptr;
    void* context = nullptr;

    // Ends the connection, also one that begins later. Any thread.
    void End();
    bool HasEnded() const { return m_hasEnded; }
    // Readable once it has ended.
    const Socket& EndSocket() const { return m_end; }

  private:
    Wakeup m_end;
    std::atomic<bool> m_hasEnded{false};
};

struct Endpoint {
    std::string host, port;
};

// From the environment, for the stand-in alone.
struct StandInSettings {
    std::map<uint16_t, uint16_t>
        ports;              // NUBA_PORTS="664=17574,22=17022": where this host's ports really are
    uint32_t silence = 30;  // NUBA_SILENCE: seconds without a byte of the cloud that end it
    static StandInSettings FromEnvironment();
};

enum : int8_t { kLogError = 1, kLogInfo = 2 };
void LogLine(int8_t level, const std::string& text);
