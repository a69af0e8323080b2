// Chooses a graphics adapter and makes a Direct3D 11 device on it.
#pragma once

#include <cstdint>

#include "lux/Types.h"

// No adapter is chosen yet: the runtime works without a device, where it can.
class DeviceDX11 {
  public:
    virtual ~DeviceDX11() = default;

    // LUX_FAIL behind the list of adapters, which has one slot.
    lux::LUX_RESULT Init(uint32_t adapterSlot, bool, bool, bool) {
        return adapterSlot == 0 ? lux::LUX_OK : lux::LUX_FAIL;
    }
    void* GetDevice() const { return nullptr; }
    void Terminate() {}
};
