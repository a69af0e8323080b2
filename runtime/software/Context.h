#pragma once

#include <atomic>

#include "runtime/software/Object.h"
#include "runtime/software/Properties.h"

namespace luxrt {

// What the components of a pipeline have in common. Everything stays in system memory, so a device is
// accepted and not used.
class Context : public Object<lux::LUXContext1> {
  public:
    lux::LUX_RESULT SetProperty(const wchar_t* name, const lux::LUXVariant* value) override {
        return m_properties.Set(name, value);
    }
    lux::LUX_RESULT GetProperty(const wchar_t* name, lux::LUXVariant* value) override {
        return m_properties.Get(name, value);
    }
    lux::LUX_RESULT Terminate() override {
        m_terminated = true;
        return lux::LUX_OK;
    }
    lux::LUX_RESULT InitDX11(void*, int32_t) override {
        return m_terminated ? lux::LUX_WRONG_STATE : lux::LUX_OK;
    }

    bool Terminated() const { return m_terminated; }

  private:
    void* Find(const lux::LUXInterfaceId& id) override {
        return id == kId ? static_cast<lux::LUXContext1*>(this) : nullptr;
    }

    std::atomic<bool> m_terminated{false};
    Properties m_properties{lux::kContextProperties};
};

}  // namespace luxrt
