// A property's value that was read from the runtime, and is freed with this object.
#pragma once

#include <winsock2.h>
#include <windows.h>
#include <objbase.h>

#include "lux/Interfaces.h"

class LuxValue {
  public:
    LuxValue() = default;
    LuxValue(const LuxValue&) = delete;
    LuxValue& operator=(const LuxValue&) = delete;
    ~LuxValue() {
        if (m_value.type == lux::LUX_VARIANT_STRING) CoTaskMemFree(m_value.stringValue);
        if (m_value.type == lux::LUX_VARIANT_WIDE_STRING) CoTaskMemFree(m_value.wideStringValue);
        if (m_value.type == lux::LUX_VARIANT_INTERFACE && m_value.interfaceValue) {
            m_value.interfaceValue->Release();
        }
    }

    // False when the object does not give the property as this type. `object` may be null.
    // Once.
    bool Read(lux::LUXPropertyStorage* object, const wchar_t* name, lux::LUXVariantType type) {
        lux::LUXVariant value{};
        if (!object || object->GetProperty(name, &value) != lux::LUX_OK) return false;
        m_value = value;
        return m_value.type == type;
    }
    const lux::LUXVariant* operator->() const { return &m_value; }
    const lux::LUXVariant* Get() const { return &m_value; }

  private:
    lux::LUXVariant m_value{};
};
