// Chooses a graphics adapter and makes a Direct3D 11 device on it.
#pragma once

#include <winsock2.h>
#include <windows.h>
#include <d3d11.h>
#include <dxgi.h>

#include <cstdint>
#include <string>
#include <vector>

#include "KVMDisplayMgrLib/src/D3dkmt.h"
#include "KVMDisplayMgrLib/src/LUXFactoryHelper.h"
#include "base/ComOwners.h"
#include "lux/Types.h"

// The PCI vendor whose adapters onlyThisVendor accepts. PCI gives this id to none, so that the first adapter
// of the PC is used (docs/display-pipeline.md).
inline constexpr uint32_t GpuVendorId = 0xFFFF;

// One thread.
class DeviceDX11 {
  public:
    explicit DeviceDX11(const LUXFactoryHelper& factory) : m_factory(factory) {}
    virtual ~DeviceDX11() = default;
    DeviceDX11(const DeviceDX11&) = delete;
    DeviceDX11& operator=(const DeviceDX11&) = delete;

    // Makes a device on the n-th acceptable adapter, or on a software adapter when that fails. When no
    // adapter is acceptable, slot 0 is the first of the machine. LUX_FAIL behind the list's end and when no
    // device can be made. An adapter that appears more than once counts once, unless keepDuplicates.
    lux::LUX_RESULT Init(uint32_t adapterSlot, bool onlyWithOutputs, bool onlyThisVendor,
                         bool keepDuplicates);

    // With a reference of its own; empty without a device.
    UniqueInterface<ID3D11Device> GetDevice() const;
    // Drops the device.
    void Terminate() { m_device.Reset(); }

    // Of the adapter's first output; empty when it has none.
    const std::wstring& DisplayDeviceName() const { return m_displayDeviceName; }
    const LUID& AdapterLuid() const { return m_luid; }

  private:
    void EnumerateAdapters(bool onlyWithOutputs, bool onlyThisVendor, bool keepDuplicates);
    std::string AdapterKey(const LUID& luid) const;
    bool AdapterDrivesDisplay(IDXGIAdapter& adapter) const;
    bool CreateDevice(IDXGIAdapter* adapter);

    const LUXFactoryHelper& m_factory;
    const d3dkmt::Calls m_displayDriver;
    UniqueInterface<ID3D11Device> m_device;
    std::vector<uint32_t> m_adapters;  // the DXGI indexes of the acceptable ones
    std::wstring m_displayDeviceName;
    LUID m_luid{};
};
