#include "tests/support/scripted/Objects.h"

#include <cstdlib>
#include <cstring>
#include <iterator>

namespace scripted {
namespace {

Answer TakeAnswer(const std::string& call) {
    Script& script = TheScript();
    if (const auto found = script.answers.find(call);
        found != script.answers.end() && !found->second.empty()) {
        const Answer answer = found->second.front();
        found->second.pop_front();
        return answer;
    }
    const auto found = script.always.find(call);
    return found == script.always.end() ? Answer{} : found->second;
}

bool IsScripted(const std::string& call) {
    const Script& script = TheScript();
    const auto found = script.answers.find(call);
    return script.always.contains(call) || (found != script.answers.end() && !found->second.empty());
}

}  // namespace

Script& TheScript() {
    static Script script;
    return script;
}

Answer Record(const std::string& call, const std::string& arguments) {
    Script& script = TheScript();
    const std::lock_guard lock(script.mutex);
    script.calls.push_back(arguments.empty() ? call : call + " " + arguments);
    return script.decide ? script.decide(call) : TakeAnswer(call);
}

Answer RecordNamed(const std::string& call, const std::string& name, const std::string& arguments) {
    const std::string named = call + " " + name;
    const Answer answer = Record(call, arguments.empty() ? name : name + " " + arguments);
    const std::lock_guard lock(TheScript().mutex);
    return !TheScript().decide && IsScripted(named) ? TakeAnswer(named) : answer;
}

std::string Text(const wchar_t* text) {
    std::string narrow;
    for (; text && *text; ++text)
        narrow += static_cast<char>(*text);
    return narrow;
}

std::string Text(const lux::LUXVariant& value) {
    switch (value.type) {
        case lux::LUX_VARIANT_BOOL:
            return "bool " + std::to_string(value.boolValue);
        case lux::LUX_VARIANT_INT64:
            return "int64 " + std::to_string(value.int64Value);
        case lux::LUX_VARIANT_SIZE:
            return "size " + std::to_string(value.sizeValue.width) + "x" +
                   std::to_string(value.sizeValue.height);
        case lux::LUX_VARIANT_RATE:
            return "rate " + std::to_string(value.rateValue.numerator) + "/" +
                   std::to_string(value.rateValue.denominator);
        case lux::LUX_VARIANT_INTERFACE:
            return value.interfaceValue ? "interface" : "interface null";
        default:
            return "type " + std::to_string(value.type);
    }
}

template <class Interface>
const lux::LUXPropertyRow* Stored<Interface>::Row(const wchar_t* name) const {
    for (size_t i = 0; i < m_count; ++i)
        if (std::wcscmp(m_rows[i].name, name) == 0) return &m_rows[i];
    return nullptr;
}

template <class Interface>
lux::LUX_RESULT Stored<Interface>::SetProperty(const wchar_t* name, const lux::LUXVariant* value) {
    const Answer answer = RecordNamed(m_name + ".SetProperty", Text(name), Text(*value));
    const lux::LUXPropertyRow* const row = Row(name);
    if (!row) return lux::LUX_UNKNOWN_PROPERTY;
    if (row->type != value->type) return lux::LUX_INVALID_TYPE;
    if (answer.result == lux::LUX_OK && row->type != lux::LUX_VARIANT_INTERFACE) m_values[name] = *value;
    return answer.result;
}

template <class Interface>
lux::LUX_RESULT Stored<Interface>::GetProperty(const wchar_t* name, lux::LUXVariant* value) {
    const Answer answer = RecordNamed(m_name + ".GetProperty", Text(name));
    if (answer.result != lux::LUX_OK) return answer.result;
    const std::lock_guard lock(TheScript().mutex);
    const auto scripted = TheScript().properties.find(m_name + "." + Text(name));
    if (scripted != TheScript().properties.end()) {
        *value = scripted->second;
        return lux::LUX_OK;
    }
    const auto found = m_values.find(name);
    if (found == m_values.end()) return lux::LUX_UNKNOWN_PROPERTY;
    *value = found->second;
    return lux::LUX_OK;
}

namespace {

class HdrData final : public Object<lux::LUXInterface> {};

class Plane final : public Object<lux::LUXPlane> {
  public:
    Plane(int32_t width, int32_t height) : m_width(width), m_height(height) {}
    int32_t GetWidth() override { return m_width; }
    int32_t GetHeight() override { return m_height; }
    int32_t GetPitch() override { return 0; }
    void* GetNative() override { return nullptr; }

  private:
    int32_t m_width, m_height;
};

// Carries the number of the surface that it comes from.
class Numbered {
  public:
    explicit Numbered(uint64_t number) : m_number(number) {}
    virtual ~Numbered() = default;
    uint64_t Number() const { return m_number; }

  private:
    uint64_t m_number;
};

void* Duplicate(const void* bytes, size_t size) {
    void* const copy = std::malloc(size);
    return std::memcpy(copy, bytes, size);
}

class Surface final : public Object<lux::LUXSurface>, public Numbered {
  public:
    Surface(uint64_t number, const Screen& screen)
        : Numbered(number),
          m_screen(screen),
          m_plane(lux::Ref<Plane>::Adopt(new Plane(screen.width, screen.height))) {}
    lux::LUX_RESULT SetProperty(const wchar_t*, const lux::LUXVariant*) override {
        return lux::LUX_UNKNOWN_PROPERTY;
    }
    lux::LUX_RESULT GetProperty(const wchar_t* name, lux::LUXVariant* value) override {
        if (std::wcscmp(name, lux::Surface::HdrMetadata) != 0) return lux::LUX_UNKNOWN_PROPERTY;
        *value = {};
        switch (m_screen.metadata) {
            case Metadata::None:
                return lux::LUX_UNKNOWN_PROPERTY;
            case Metadata::Interface:
                value->interfaceValue = new HdrData;
                [[fallthrough]];
            case Metadata::NullInterface:
                value->type = lux::LUX_VARIANT_INTERFACE;
                break;
            // The memory of CoTaskMemAlloc, which the service frees, is that of malloc here.
            case Metadata::String:
                value->type = lux::LUX_VARIANT_STRING;
                value->stringValue = static_cast<char*>(Duplicate("hdr", 4));
                break;
            case Metadata::WideString:
                value->type = lux::LUX_VARIANT_WIDE_STRING;
                value->wideStringValue = static_cast<wchar_t*>(Duplicate(L"hdr", 4 * sizeof(wchar_t)));
        }
        return lux::LUX_OK;
    }
    lux::LUXSurfaceFormat GetFormat() override { return m_screen.format; }
    size_t GetPlanesCount() override { return m_screen.hasPlane; }
    lux::LUXPlane* GetPlane(size_t index) override {
        return m_screen.hasPlane && index == 0 ? m_plane.Get() : nullptr;
    }
    const Screen& Content() const { return m_screen; }

  protected:
    void* Find(const lux::LUXInterfaceId& id) override {
        return id == kId && m_screen.isSurface ? static_cast<lux::LUXSurface*>(this) : nullptr;
    }

  private:
    Screen m_screen;
    lux::Ref<Plane> m_plane;
};

class Buffer final : public Object<lux::LUXBuffer> {
  public:
    explicit Buffer(Packet packet) : m_packet(std::move(packet)) {}
    lux::LUX_RESULT SetProperty(const wchar_t*, const lux::LUXVariant*) override {
        return lux::LUX_UNKNOWN_PROPERTY;
    }
    lux::LUX_RESULT GetProperty(const wchar_t*, lux::LUXVariant*) override {
        return lux::LUX_UNKNOWN_PROPERTY;
    }
    size_t GetSize() override { return m_packet.declaredSize ? m_packet.declaredSize : Bytes().size(); }
    void* GetNative() override { return m_packet.hasNative ? const_cast<uint8_t*>(Bytes().data()) : nullptr; }

  protected:
    void* Find(const lux::LUXInterfaceId& id) override {
        return id == kId && m_packet.isBuffer ? static_cast<lux::LUXBuffer*>(this) : nullptr;
    }

  private:
    const std::vector<uint8_t>& Bytes() const { return m_packet.lent ? *m_packet.lent : m_packet.bytes; }

    Packet m_packet;
};

class Caps final : public Object<lux::LUXCaps> {
  public:
    lux::LUX_RESULT SetProperty(const wchar_t*, const lux::LUXVariant*) override {
        return lux::LUX_UNKNOWN_PROPERTY;
    }
    lux::LUX_RESULT GetProperty(const wchar_t*, lux::LUXVariant*) override {
        return lux::LUX_UNKNOWN_PROPERTY;
    }
    lux::LUXAcceleration GetAccelerationType() override { return lux::LUX_ACCELERATION_HARDWARE; }
};

class Component final : public Stored<lux::LUXComponent> {
  public:
    using Stored::Stored;
    lux::LUX_RESULT Init(lux::LUXSurfaceFormat format, int32_t width, int32_t height) override {
        const std::string arguments =
            std::to_string(format) + " " + std::to_string(width) + "x" + std::to_string(height);
        const Answer answer = Record(Name() + ".Init", arguments);
        const std::lock_guard lock(TheScript().mutex);
        for (size_t i = 0; i < TheScript().backlog; ++i)
            m_inputs.emplace_back(Screen{}, 0);
        return answer.result;
    }
    lux::LUX_RESULT Terminate() override { return Record(Name() + ".Terminate").result; }
    lux::LUX_RESULT Flush() override {
        m_inputs.clear();
        return Record(Name() + ".Flush").result;
    }
    lux::LUX_RESULT SubmitInput(lux::LUXData* data) override {
        const auto* const surface = dynamic_cast<Surface*>(data);
        const uint64_t number = surface ? surface->Number() : 0;
        const Answer answer = Record(Name() + ".SubmitInput", std::to_string(number));
        if (answer.result != lux::LUX_OK) return answer.result;
        const std::lock_guard lock(TheScript().mutex);
        if (TheScript().capacity && m_inputs.size() >= TheScript().capacity) return lux::LUX_INPUT_FULL;
        m_inputs.emplace_back(surface ? surface->Content() : Screen{}, number);
        return lux::LUX_OK;
    }
    lux::LUX_RESULT QueryOutput(lux::LUXData** data) override {
        const Answer answer = Record(Name() + ".QueryOutput");
        *data = nullptr;
        const bool stores = !answer.isNull && (answer.result == lux::LUX_OK || answer.isObject);
        const std::lock_guard lock(TheScript().mutex);
        if (stores) *data = MakeOutput(answer.result == lux::LUX_OK);
        return answer.result;
    }
    lux::LUX_RESULT GetCaps(lux::LUXCaps** caps) override {
        const Answer answer = Record(Name() + ".GetCaps");
        *caps = answer.result == lux::LUX_OK && !answer.isNull ? new Caps : nullptr;
        return answer.result;
    }

  private:
    // What the caller gets. An output that comes with a failure may stay for the next query.
    lux::LUXData* MakeOutput(bool succeeds) {
        Script& script = TheScript();
        if (Name() == "LUXDisplayCapture") {
            if (!script.screens.empty()) {
                script.lastScreen = script.screens.front();
                script.screens.pop_front();
            }
            return new Surface(++script.surfaces, script.lastScreen);
        }
        if (m_inputs.empty()) return nullptr;
        auto [content, number] = m_inputs.front();
        if (succeeds || !script.repeatsFailedOutputs) m_inputs.pop_front();
        if (Name() == "LUXVideoConverter") {
            const bool isHdr = content.metadata != Metadata::None;
            content.format = isHdr ? content.format : lux::LUX_SURFACE_NV12;
            return new Surface(number, content);
        }
        Packet packet;
        if (!script.packets.empty()) {
            packet = script.packets.front();
            script.packets.pop_front();
        } else {
            const std::string text = "packet of surface " + std::to_string(number);
            packet.bytes.assign(text.begin(), text.end());
        }
        return new Buffer(std::move(packet));
    }

    std::deque<std::pair<Screen, uint64_t>> m_inputs;
};

}  // namespace

lux::LUXComponent* MakeComponent(const std::wstring& id) {
    const auto make = [&](const auto& rows) {
        return new Component(Text(id.c_str()), std::data(rows), std::size(rows));
    };
    if (id == lux::kCaptureId) return make(lux::kCaptureProperties);
    if (id == lux::kConverterId) return make(lux::kConverterProperties);
    if (id == lux::kAv1EncoderId) return make(lux::kAv1EncoderProperties);
    if (id == lux::kAvcEncoderId) return make(lux::kAvcEncoderProperties);
    if (id == lux::kHevcEncoderId) return make(lux::kHevcEncoderProperties);
    return nullptr;
}

template class Stored<lux::LUXContext1>;

}  // namespace scripted
