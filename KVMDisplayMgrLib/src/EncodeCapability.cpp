#include "KVMDisplayMgrLib/src/EncodeCapability.h"

#include "KVMDisplayMgrLib/src/LUXFactoryHelper.h"
#include "KVMDisplayMgrLib/src/StandardOutput.h"
#include "base/Log.h"
#include "mailbox/DisplayRecords.h"
#include "mailbox/MailBoxDriverInterface.h"

int QueryEncodeCapability(CapabilityMode mode, lux::LUXVersion* current, lux::LUXVersion* minimum) {
    return QueryEncodeCapability(ProcessLuxFactory(), mode, current, minimum);
}

int QueryEncodeCapability(LUXFactoryHelper& factory, CapabilityMode, lux::LUXVersion* current,
                          lux::LUXVersion* minimum) {
    if (factory.Init() != lux::LUX_OK) {
        PrintWide(L"LUX Failed to initialize");
        return 0;
    }
    *minimum = LUX_MIN_VERSION;
    *current = factory.GetLUXVersion();
    factory.Terminate();
    return 0;  // no adapter is queried yet
}

int SendLuxCapabilityToMPM(MailBoxDriverInterface& driver) {
    return SendLuxCapabilityToMPM(ProcessLuxFactory(), driver);
}

int SendLuxCapabilityToMPM(LUXFactoryHelper& factory, MailBoxDriverInterface& driver) {
    lux::LUXVersion current = 0, minimum = 0;
    const int encodes = QueryEncodeCapability(factory, kEncoderCapability, &current, &minimum);
    LogInfo("Getting LUX AV1 encode %d Current version 0x%llx Min supported version 0x%llx", encodes, current,
            minimum);
    const CapabilityConfigRecord config{encodes == 1 && current >= minimum ? 1u : 0u};
    LogInfo("Sending LUX capability to MPM. Encode caps: %d", config.encode);
    driver.WriteCapabilityConfig(&config);
    return encodes;
}
