#include "KVMDisplayMgrLib/src/LUXFactoryHelper.h"

// No library is loaded yet.
lux::LUX_RESULT LUXFactoryHelper::Init(const wchar_t*) {
    return lux::LUX_FAIL;
}

void LUXFactoryHelper::Terminate() {}

LUXFactoryHelper& ProcessLuxFactory() {
    static LUXFactoryHelper* const factory = new LUXFactoryHelper;
    return *factory;
}
