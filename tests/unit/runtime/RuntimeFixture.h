// What the tests of the software runtime share: values, a clock and a screen that a test moves.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <utility>

#include "lux/Ref.h"
#include "runtime/software/Component.h"
#include "runtime/software/Pacing.h"
#include "runtime/software/ScreenSource.h"

namespace luxtest {

inline lux::LUXVariant InterfaceValue(lux::LUXInterface* object) {
    lux::LUXVariant value{};
    value.type = lux::LUX_VARIANT_INTERFACE;
    value.interfaceValue = object;
    return value;
}

template <class Holder, class T>
lux::LUX_RESULT Set(Holder& object, const wchar_t* name, T value) {
    const lux::LUXVariant variant = luxrt::ToVariant(value);
    return object.SetProperty(name, &variant);
}

// A time that only the test moves.
class FakeClock : public luxrt::Object<lux::LUXCurrentTime> {
  public:
    int64_t Get() override { return now; }
    void Advance(int64_t milliseconds) { now += milliseconds * luxrt::kMillisecond; }
    int64_t now = 1'000'000 * luxrt::kMillisecond;

  private:
    void* Find(const lux::LUXInterfaceId& id) override {
        return id == kId ? static_cast<lux::LUXCurrentTime*>(this) : nullptr;
    }
};

// What a test's screen shows.
struct FakeScreenState {
    lux::LUXSize size{64, 48};
    bool changed = true;
    // The picture does not come.
    bool stuck = false;
    bool alive = true;
    uint8_t shade = 0;
    int opened = 0;
    int open = 0;
    int64_t monitor = -1;
};

class FakeScreen : public luxrt::ScreenSource {
  public:
    explicit FakeScreen(FakeScreenState& state) : m_state(state) { ++m_state.open; }
    ~FakeScreen() override { --m_state.open; }
    bool Changed() override { return m_state.changed; }
    lux::Ref<luxrt::Surface> Take() override {
        if (m_state.stuck) {
            return {};
        }
        m_state.changed = false;
        auto surface = luxrt::MakeSurface(*m_pool, lux::LUX_SURFACE_BGRA, m_state.size);
        std::memset(luxrt::ViewPlane(*surface.Get(), 0).bytes, m_state.shade,
                    luxrt::Surface::Bytes(lux::LUX_SURFACE_BGRA, m_state.size));
        return surface;
    }
    bool Alive() override { return m_state.alive; }

  private:
    FakeScreenState& m_state;
    std::shared_ptr<luxrt::BlockPool> m_pool = std::make_shared<luxrt::BlockPool>();
};

// One output of a component, or null.
inline lux::Ref<lux::LUXData> Query(lux::LUXComponent& component) {
    lux::Ref<lux::LUXData> data;
    EXPECT_EQ(component.QueryOutput(data.Out()), lux::LUX_OK);
    return data;
}

inline lux::LUXSize SizeOf(lux::LUXData& data) {
    const auto surface = lux::Ref<lux::LUXData>::Share(&data).As<lux::LUXSurface>();
    return surface ? luxrt::ViewPlane(*surface.Get(), 0).size : lux::LUXSize{};
}

inline uint8_t* PixelsOf(lux::LUXData& data, size_t plane = 0) {
    const auto surface = lux::Ref<lux::LUXData>::Share(&data).As<lux::LUXSurface>();
    return surface ? luxrt::ViewPlane(*surface.Get(), plane).bytes : nullptr;
}

// A surface for tests, of memory of its own.
inline lux::Ref<luxrt::Surface> NewSurface(lux::LUXSurfaceFormat format, lux::LUXSize size) {
    const auto pool = std::make_shared<luxrt::BlockPool>();
    return luxrt::MakeSurface(*pool, format, size);
}

}  // namespace luxtest
