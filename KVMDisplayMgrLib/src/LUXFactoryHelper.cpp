#include "KVMDisplayMgrLib/src/LUXFactoryHelper.h"

#include "base/LibraryFunction.h"

lux::LUX_RESULT LUXFactoryHelper::Init(const wchar_t* dllName) {
    const std::lock_guard lock(m_loadMutex);
    if (!m_library) {
        const lux::LUX_RESULT result = Load(dllName ? dllName : L"luxrt64.dll");
        if (result != lux::LUX_OK) return result;
    }
    ++m_holdCount;
    return lux::LUX_OK;
}

lux::LUX_RESULT LUXFactoryHelper::Load(const wchar_t* dllName) {
    m_library.Reset(LoadLibraryW(dllName));
    if (!m_library) return lux::LUX_FAIL;
    const auto init = LibraryFunction<LUXInit_Fn>(m_library.Get(), "LUXInit");
    if (!init) return lux::LUX_FAIL;
    lux::LUX_RESULT result = init(lux::LUX_HEADER_VERSION, &m_factory);
    if (result != lux::LUX_OK) return result;
    const auto queryVersion = LibraryFunction<LUXQueryVersion_Fn>(m_library.Get(), "LUXQueryVersion");
    if (!queryVersion) return lux::LUX_FAIL;
    result = queryVersion(&m_version);
    if (result != lux::LUX_OK) return result;
    if (!m_factory) return lux::LUX_FAIL;
    m_factory->GetTrace(&m_trace);
    m_factory->GetDebug(&m_debug);
    return lux::LUX_OK;
}

void LUXFactoryHelper::Terminate() {
    const std::lock_guard lock(m_loadMutex);
    if (!m_library || --m_holdCount != 0) return;
    m_factory = nullptr;
    m_debug = nullptr;
    m_trace = nullptr;
    m_library.Reset();
}

LUXFactoryHelper& ProcessLuxFactory() {
    static LUXFactoryHelper* const factory = new LUXFactoryHelper;
    return *factory;
}
