// The two exported functions, and the factory.
#include <array>
#include <string_view>

#include "lux/Names.h"
#include "runtime/software/Av1Encoder.h"
#include "runtime/software/Capture.h"
#include "runtime/software/Context.h"
#include "runtime/software/Converter.h"
#include "runtime/software/Trace.h"

namespace luxrt {

using namespace lux;

namespace {

// 1.4.38.0 is the lowest version that the service offers to the firmware.
constexpr LUXVersion kVersion = MakeVersion(1, 4, 38, 0);

template <class T>
LUXComponent* Make() {
    return new T();
}

struct ComponentRow {
    std::wstring_view id;
    LUXComponent* (*make)();
};
constexpr std::array<ComponentRow, 3> kComponents{{
    {kCaptureId, Make<Capture>},
    {kConverterId, Make<Converter>},
    {kAv1EncoderId, Make<Av1Encoder>},
}};

// No assertion of this runtime opens a dialog.
class Debug : public LUXDebug {
  public:
    void EnableAssertions(bool) override {}
};

class Factory : public LUXFactory {
  public:
    static Factory& Instance() {
        // It has nothing to free, so that it serves until the library is unloaded.
        static Factory instance;
        return instance;
    }

    LUX_RESULT CreateContext(LUXContext** context) override {
        return Guarded([&] {
            if (!context) {
                return LUX_INVALID_POINTER;
            }
            *context = nullptr;
            *context = new Context();
            return LUX_OK;
        });
    }

    LUX_RESULT CreateComponent(LUXContext* context, const wchar_t* id, LUXComponent** component) override {
        return Guarded([&] {
            if (!component) {
                return LUX_INVALID_POINTER;
            }
            *component = nullptr;
            if (!context || !id) {
                return LUX_INVALID_POINTER;
            }
            if (static_cast<Context*>(context)->Terminated()) {
                return LUX_WRONG_STATE;
            }
            for (const ComponentRow& row : kComponents) {
                if (row.id == id) {
                    *component = row.make();
                    return LUX_OK;
                }
            }
            // HEVC and AVC among them.
            return LUX_NOT_SUPPORTED;
        });
    }

    LUX_RESULT GetTrace(LUXTrace** trace) override {
        return Guarded([&] {
            if (!trace) {
                return LUX_INVALID_POINTER;
            }
            *trace = &Trace::Instance();
            return LUX_OK;
        });
    }

    LUX_RESULT GetDebug(LUXDebug** debug) override {
        if (!debug) {
            return LUX_INVALID_POINTER;
        }
        *debug = &m_debug;
        return LUX_OK;
    }

  private:
    Debug m_debug;
};

}  // namespace

}  // namespace luxrt

extern "C" lux::LUX_RESULT LUXInit(lux::LUXVersion version, lux::LUXFactory** factory) {
    return luxrt::Guarded([&] {
        if (!factory) {
            return lux::LUX_INVALID_POINTER;
        }
        *factory = nullptr;
        if (version > luxrt::kVersion) {
            return lux::LUX_VERSION_TOO_OLD;
        }
        *factory = &luxrt::Factory::Instance();
        return lux::LUX_OK;
    });
}

extern "C" lux::LUX_RESULT LUXQueryVersion(lux::LUXVersion* version) {
    if (!version) {
        return lux::LUX_INVALID_POINTER;
    }
    *version = luxrt::kVersion;
    return lux::LUX_OK;
}
