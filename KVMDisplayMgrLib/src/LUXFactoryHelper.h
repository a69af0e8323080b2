// Loads the media runtime and gives out its factory.
#pragma once

#include <cstdint>

#include "lux/Interfaces.h"

class LUXFactoryHelper {
  public:
    virtual ~LUXFactoryHelper() = default;

    // Takes one hold, and loads the library for the first one. Returns 1 when the library or one of its two
    // functions is missing, and otherwise what the functions return.
    lux::LUX_RESULT Init(const wchar_t* dllName = nullptr);
    // Releases one hold, and frees the library with the last one.
    void Terminate();

    // Each is null, or 0, unless Init has come so far.
    lux::LUXFactory* GetFactory() const { return m_factory; }
    lux::LUXDebug* GetDebug() const { return m_debug; }
    lux::LUXTrace* GetTrace() const { return m_trace; }
    lux::LUXVersion GetLUXVersion() const { return m_version; }

  private:
    lux::LUXFactory* m_factory = nullptr;
    lux::LUXDebug* m_debug = nullptr;
    lux::LUXTrace* m_trace = nullptr;
    lux::LUXVersion m_version = 0;
};

// The one of the process, which is never destroyed.
LUXFactoryHelper& ProcessLuxFactory();
