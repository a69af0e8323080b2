// The scripted runtime's context, factory, trace and debug interface.
#include "tests/support/scripted/Runtime.h"

#include "tests/support/scripted/Objects.h"

namespace scripted {
namespace {

class Context final : public Stored<lux::LUXContext1> {
  public:
    Context() : Stored("context", lux::kContextProperties, std::size(lux::kContextProperties)) {}
    lux::LUX_RESULT Terminate() override { return Record("context.Terminate").result; }
    lux::LUX_RESULT InitDX11(void* device, int32_t featureLevel) override {
        const std::string arguments = (device ? "device " : "null ") + std::to_string(featureLevel);
        return Record("context.InitDX11", arguments).result;
    }

  protected:
    void* Find(const lux::LUXInterfaceId& id) override {
        if (Record("context.QueryInterface").result != lux::LUX_OK) return nullptr;
        return id == kId ? static_cast<lux::LUXContext1*>(this) : nullptr;
    }
};

class Trace final : public lux::LUXTrace {
  public:
    virtual ~Trace() = default;
    void EnableAsync(bool enable) override { Record("trace.EnableAsync", std::to_string(enable)); }
    lux::LUX_RESULT EnableWriter(const wchar_t* writer, bool enable) override {
        return RecordNamed("trace.EnableWriter", Text(writer), std::to_string(enable)).result;
    }
    void TraceText(const char* file, int32_t line, lux::LUXTraceLevel level, const char* scope,
                   const char* message) override {
        const std::lock_guard lock(TheScript().mutex);
        TheScript().traces.push_back({file, line, level, scope, message});
    }
    const char* GetResultText(lux::LUX_RESULT result) override {
        return result == lux::LUX_OK ? "LUX_OK" : "the runtime's text";
    }
    const char* GetSurfaceFormatName(lux::LUXSurfaceFormat format) override {
        switch (format) {
            case lux::LUX_SURFACE_NV12:
                return "NV12";
            case lux::LUX_SURFACE_BGRA:
                return "BGRA";
            case lux::LUX_SURFACE_P010:
                return "P010";
            default:
                return "another format";
        }
    }
};

class Debug final : public lux::LUXDebug {
  public:
    virtual ~Debug() = default;
    void EnableAssertions(bool enable) override { Record("debug.EnableAssertions", std::to_string(enable)); }
};

class Factory final : public lux::LUXFactory {
  public:
    virtual ~Factory() = default;
    lux::LUX_RESULT CreateContext(lux::LUXContext** context) override {
        const Answer answer = Record("factory.CreateContext");
        *context = answer.result == lux::LUX_OK && !answer.isNull ? new Context : nullptr;
        return answer.result;
    }
    lux::LUX_RESULT CreateComponent(lux::LUXContext*, const wchar_t* id,
                                    lux::LUXComponent** component) override {
        const Answer answer = RecordNamed("factory.CreateComponent", Text(id));
        const bool stores = !answer.isNull && (answer.result == lux::LUX_OK || answer.isObject);
        *component = stores ? MakeComponent(id) : nullptr;
        return answer.result;
    }
    lux::LUX_RESULT GetTrace(lux::LUXTrace** trace) override {
        static Trace theTrace;
        *trace = TheScript().withoutTrace ? nullptr : &theTrace;
        return *trace ? lux::LUX_OK : lux::LUX_NOT_SUPPORTED;
    }
    lux::LUX_RESULT GetDebug(lux::LUXDebug** debug) override {
        static Debug theDebug;
        *debug = TheScript().withoutTrace ? nullptr : &theDebug;
        return *debug ? lux::LUX_OK : lux::LUX_NOT_SUPPORTED;
    }
};

std::string VersionText(lux::LUXVersion version) {
    std::string text;
    for (int shift = 48; shift >= 0; shift -= 16)
        text += (text.empty() ? "" : ".") + std::to_string(version >> shift & 0xFFFF);
    return text;
}

}  // namespace

lux::LUX_RESULT Init(lux::LUXVersion version, lux::LUXFactory** factory) {
    const Answer answer = Record("LUXInit", VersionText(version));
    static Factory theFactory;
    if (answer.result == lux::LUX_OK) *factory = TheScript().withoutFactory ? nullptr : &theFactory;
    return answer.result;
}

lux::LUX_RESULT QueryVersion(lux::LUXVersion* version) {
    const Answer answer = Record("LUXQueryVersion");
    if (answer.result == lux::LUX_OK) *version = TheScript().version;
    return answer.result;
}

}  // namespace scripted
