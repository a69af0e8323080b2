#include "KVMDisplayMgrLib/src/EncodeCapability.h"

#include <winsock2.h>
#include <windows.h>

#include <cstdint>
#include <cwchar>

#include "KVMDisplayMgrLib/src/DeviceDX11.h"
#include "KVMDisplayMgrLib/src/LUXFactoryHelper.h"
#include "KVMDisplayMgrLib/src/StandardOutput.h"
#include "base/Log.h"
#include "mailbox/DisplayRecords.h"
#include "mailbox/MailBoxDriverInterface.h"
#include "lux/Names.h"
#include "lux/Ref.h"

using namespace lux;

namespace {

void PrintVersion(const wchar_t* label, LUXVersion version) {
    wchar_t line[64];
    std::swprintf(line, std::size(line), L"%ls%llX\n", label, static_cast<unsigned long long>(version));
    PrintWide(line);
}

// The service has no manifest that names Windows 10, so that every Windows from 8 on reports 6.2.
bool IsWindowsNewEnough() {
    OSVERSIONINFOW version{};
    version.dwOSVersionInfoSize = sizeof version;
    if (!GetVersionExW(&version)) return false;
    if (version.dwMajorVersion < 6) PrintWide(L"This version of Windows is too old\n");
    return version.dwMinorVersion >= 2;
}

bool InitDevice(const LUXFactoryHelper& factory, const Ref<LUXContext>& context, uint32_t slot) {
    DeviceDX11 device(factory);
    if (device.Init(slot, true, true, false) != LUX_OK) return false;
    const auto extended = context.As<LUXContext1>();
    return extended && extended->InitDX11(device.GetDevice().Get(), 110) == LUX_OK;
}

// To create the component and to read its capabilities is the whole test.
bool IsUsable(const LUXFactoryHelper& factory, LUXContext& context, CapabilityMode mode) {
    PrintWide(L"DirectX 11\n");
    PrintWide(mode == kEncoderCapability ? L"Querying video encoder capabilities...\n"
                                         : L"Querying video converter capabilities...\n");
    Ref<LUXComponent> component;
    Ref<LUXCaps> caps;
    factory.GetFactory()->CreateComponent(&context, mode == kEncoderCapability ? kAv1EncoderId : kConverterId,
                                          component.Out());
    const bool hasCaps = component && component->GetCaps(caps.Out()) == LUX_OK && caps;
    if (!hasCaps) PrintWide(L"Not supported\n");
    return hasCaps;
}

}  // namespace

int QueryEncodeCapability(CapabilityMode mode, LUXVersion* current, LUXVersion* minimum) {
    return QueryEncodeCapability(ProcessLuxFactory(), mode, current, minimum);
}

int QueryEncodeCapability(LUXFactoryHelper& factory, CapabilityMode mode, LUXVersion* current,
                          LUXVersion* minimum) {
    if (factory.Init() != LUX_OK) {
        PrintWide(L"LUX Failed to initialize");
        return 0;
    }
    *minimum = LUX_MIN_VERSION;
    *current = factory.GetLUXVersion();
    PrintVersion(L"LUX version (header):  ", LUX_HEADER_VERSION);
    PrintVersion(L"LUX version (runtime): ", *current);
    if (LUXDebug* const debug = factory.GetDebug()) debug->EnableAssertions(false);
    for (uint32_t slot = 0;; ++slot) {
        Ref<LUXContext> context;
        if (LUXFactory* const runtime = factory.GetFactory()) runtime->CreateContext(context.Out());
        if (!context) {
            // Keeps its hold.
            PrintWide(L"Failed to instatiate Capability Manager.\n");
            return 0;
        }
        const bool hasDevice = IsWindowsNewEnough() && InitDevice(factory, context, slot);
        const bool isFound = hasDevice && IsUsable(factory, *context.Get(), mode);
        context->Terminate();
        context.Reset();  // the last hold below unloads the runtime
        if (!hasDevice || isFound) {
            factory.Terminate();
            return isFound;
        }
    }
}

int SendLuxCapabilityToMPM(MailBoxDriverInterface& driver) {
    return SendLuxCapabilityToMPM(ProcessLuxFactory(), driver);
}

int SendLuxCapabilityToMPM(LUXFactoryHelper& factory, MailBoxDriverInterface& driver) {
    LUXVersion current = 0, minimum = 0;
    const int encodes = QueryEncodeCapability(factory, kEncoderCapability, &current, &minimum);
    LogInfo("Getting LUX AV1 encode %d Current version 0x%llx Min supported version 0x%llx", encodes, current,
            minimum);
    const CapabilityConfigRecord config{encodes == 1 && current >= minimum ? 1u : 0u};
    LogInfo("Sending LUX capability to MPM. Encode caps: %d", config.encode);
    driver.WriteCapabilityConfig(&config);
    return encodes;
}
