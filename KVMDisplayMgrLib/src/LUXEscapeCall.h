// Requests to the display driver that Direct3D has no call for.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "KVMDisplayMgrLib/src/D3dkmt.h"
#include "KVMDisplayMgrLib/src/LuxTrace.h"

// One thread. Failures are written to the runtime's trace.
class LUXEscapeCall {
  public:
    static constexpr uint32_t kNoScheduler = 52;
    static constexpr size_t kContextDataSize = 64;

    // Both must outlive this object.
    LUXEscapeCall(const LUXFactoryHelper& factory, const d3dkmt::Calls& call);
    ~LUXEscapeCall();
    LUXEscapeCall(const LUXEscapeCall&) = delete;
    LUXEscapeCall& operator=(const LUXEscapeCall&) = delete;

    // Opens the adapter and reads the driver's data about it. With context data, kContextDataSize bytes, it
    // also makes a context on the encoder core `rdnIndex`. May be called again, for another adapter.
    lux::LUX_RESULT Init(const LUID& adapterLuid, uint32_t rdnIndex, const void* contextData);

    // Sends the input and a copy of the output, and receives the output. `sized` puts the number of its bytes
    // in front of each. Returns 0, or 1 when the driver refuses.
    int CallEscape(uint32_t code, const void* input, uint32_t inputSize, void* output, uint32_t outputSize,
                   bool sized);

    // LUX_NOT_FOUND when there is no such core or it has no scheduler.
    lux::LUX_RESULT GetSchedulerIdForRdn(uint32_t rdnIndex, uint32_t* schedulerId) const;

    lux::LUX_RESULT Terminate();

    // The folder of the driver's user-mode library, with the last separator; empty when it is not known.
    const std::u16string& DriverPath() const { return m_driverPath; }

  private:
    // The places of what is used of the driver's private data.
    static constexpr size_t kFixedSize = 2400, kEngineBlockSize = 14848, kMaxEngineBlocks = 4;
    static constexpr size_t kPrivateDataSize = kFixedSize + kMaxEngineBlocks * kEngineBlockSize;
    static constexpr size_t kEngineCountAt = 8, kEngineTableAt = 4604, kEngineTableSize = 64;
    static constexpr size_t kCoreCountAt = 16460;

    uint32_t PrivateWord(size_t offset) const;
    bool ReadPrivateData();
    void ReadDriverPath();
    void ReadSchedulers();
    lux::LUX_RESULT CreateContext(uint32_t rdnIndex, const void* contextData);
    std::vector<uint8_t> Pack(uint32_t code, const void* input, uint32_t inputSize, const void* output,
                              uint32_t outputSize, bool sized) const;
    size_t HeadSize() const;

    const d3dkmt::Calls& m_call;
    LuxTrace m_trace;
    uint8_t m_extended = 0;  // 1: the driver has private data, and takes the longer head
    d3dkmt::Escape m_escape{};
    std::vector<uint8_t> m_privateData;
    std::vector<uint32_t> m_schedulerIds;  // by encoder core
    std::u16string m_driverPath;
    std::string m_driverFolder;  // the same in UTF-8
};
