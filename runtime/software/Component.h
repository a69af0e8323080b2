// What all components do alike.
#pragma once

#include <memory>

#include "lux/Ref.h"
#include "runtime/software/Object.h"
#include "runtime/software/Properties.h"
#include "runtime/software/Surface.h"

namespace luxrt {

class Caps : public Object<lux::LUXCaps> {
  public:
    lux::LUX_RESULT SetProperty(const wchar_t* name, const lux::LUXVariant* value) override {
        return m_properties.Set(name, value);
    }
    lux::LUX_RESULT GetProperty(const wchar_t* name, lux::LUXVariant* value) override {
        return m_properties.Get(name, value);
    }
    lux::LUXAcceleration GetAccelerationType() override { return lux::LUX_ACCELERATION_SOFTWARE; }

  private:
    Properties m_properties{{}};
};

// A component works inside SubmitInput, on the caller's thread, and holds one output at most.
class Component : public Object<lux::LUXComponent> {
  public:
    Component(std::span<const lux::LUXPropertyRow> rows, std::span<const PropertyRule> rules)
        : m_properties(rows, rules) {}

    // A value takes effect with the next Init.
    lux::LUX_RESULT SetProperty(const wchar_t* name, const lux::LUXVariant* value) override {
        return m_properties.Set(name, value);
    }
    lux::LUX_RESULT GetProperty(const wchar_t* name, lux::LUXVariant* value) override {
        return m_properties.Get(name, value);
    }
    lux::LUX_RESULT GetCaps(lux::LUXCaps** caps) override {
        return Guarded([&] {
            if (!caps) {
                return lux::LUX_INVALID_POINTER;
            }
            *caps = new Caps();
            return lux::LUX_OK;
        });
    }

  protected:
    int64_t Integer(std::wstring_view name) const { return m_properties[name].int64Value; }
    bool Boolean(std::wstring_view name) const { return m_properties[name].boolValue != 0; }
    lux::LUXSize Size(std::wstring_view name) const { return m_properties[name].sizeValue; }
    lux::LUXRate Rate(std::wstring_view name) const { return m_properties[name].rateValue; }
    lux::LUXInterface* Interface(std::wstring_view name) const { return m_properties[name].interfaceValue; }

  private:
    Properties m_properties;
};

// Between once and a thousand times a second.
inline bool IsFrameRate(const lux::LUXVariant& value) {
    const auto [numerator, denominator] = value.rateValue;
    return denominator > 0 && numerator >= denominator && numerator / denominator <= 1000;
}

// Zero by zero stands for the size that Init gets.
inline bool IsPictureSizeOrNone(const lux::LUXVariant& value) {
    return value.sizeValue == lux::LUXSize{} || IsPictureSize(value.sizeValue);
}

// The surface that a stage was initialised for, or null.
inline lux::Ref<lux::LUXSurface> AsSurface(lux::LUXData* data, lux::LUXSurfaceFormat format,
                                           lux::LUXSize size) {
    auto surface = lux::Ref<lux::LUXData>::Share(data).As<lux::LUXSurface>();
    if (!surface || surface->GetFormat() != format) {
        return {};
    }
    const PlaneView plane = ViewPlane(*surface.Get(), 0);
    return plane.bytes && plane.size == size ? surface : lux::Ref<lux::LUXSurface>();
}

}  // namespace luxrt
