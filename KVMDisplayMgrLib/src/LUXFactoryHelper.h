// Loads the media runtime and gives out its factory.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>

#include "base/Handles.h"
#include "lux/Interfaces.h"

// Init and Terminate: any thread. What the others return is valid for as long as the caller has a hold.
class LUXFactoryHelper {
  public:
    LUXFactoryHelper() = default;
    virtual ~LUXFactoryHelper() = default;
    LUXFactoryHelper(const LUXFactoryHelper&) = delete;
    LUXFactoryHelper& operator=(const LUXFactoryHelper&) = delete;

    // Takes one hold, and loads the library, luxrt64.dll unless another is named, for the first one. Returns
    // LUX_FAIL when the library or one of its two functions is missing, and otherwise what these return. A
    // library that fails behind its loading stays loaded, so that the next Init only takes a hold: each of
    // the fields below may then still be null.
    lux::LUX_RESULT Init(const wchar_t* dllName = nullptr);
    // Releases one hold, and frees the library with the last one. Nothing of the runtime may be used then.
    void Terminate();

    lux::LUXFactory* GetFactory() const { return m_factory; }
    lux::LUXDebug* GetDebug() const { return m_debug; }
    lux::LUXTrace* GetTrace() const { return m_trace; }
    // 0 until Init has read it.
    lux::LUXVersion GetLUXVersion() const { return m_version; }

  private:
    lux::LUX_RESULT Load(const wchar_t* dllName);

    std::mutex m_loadMutex;
    UniqueLibrary m_library;
    lux::LUXFactory* m_factory = nullptr;
    lux::LUXDebug* m_debug = nullptr;
    lux::LUXTrace* m_trace = nullptr;
    lux::LUXVersion m_version = 0;
    std::atomic<int32_t> m_holdCount{0};
};

// The one of the process, which is never destroyed: the runtime's threads may outlive the static objects.
LUXFactoryHelper& ProcessLuxFactory();
