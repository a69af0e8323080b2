#include "bench/screen/BareLoop.h"

#include <dlfcn.h>
#include <unistd.h>

#include <ctime>
#include <span>
#include <stdexcept>

#include "lux/Names.h"

using namespace lux;

namespace {

constexpr useconds_t kPoll = 1000;  // microseconds

struct Setting {
    const wchar_t* name;
    LUXVariant value;
};

LUXVariant Integer(int64_t value) {
    return {LUX_VARIANT_INT64, {.int64Value = value}};
}
LUXVariant Flag(bool value) {
    return {LUX_VARIANT_BOOL, {.boolValue = value}};
}
LUXVariant Size(LUXSize value) {
    return {LUX_VARIANT_SIZE, {.sizeValue = value}};
}
const LUXVariant kRate{LUX_VARIANT_RATE, {.rateValue = {30, 1}}};
const LUXVariant kNone{LUX_VARIANT_INTERFACE, {.interfaceValue = nullptr}};

void Require(LUX_RESULT result, const char* step) {
    if (result != LUX_OK)
        throw std::runtime_error(std::string("the runtime fails: ") + step + " " + std::to_string(result));
}

void Apply(LUXComponent& component, std::span<const Setting> settings) {
    for (const Setting& setting : settings)
        Require(component.SetProperty(setting.name, &setting.value), "SetProperty");
}

Ref<LUXData> AwaitOutput(LUXComponent& component) {
    Ref<LUXData> output;
    for (;;) {
        Require(component.QueryOutput(output.Out()), "QueryOutput");
        if (output) return output;
        usleep(kPoll);
    }
}

long long Now() {
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return time.tv_sec * 1'000'000'000LL + time.tv_nsec;
}

}  // namespace

BareLoop::BareLoop(const std::string& library, LUXSize size) {
    void* const object = dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!object) throw std::runtime_error(dlerror());
    const auto init = reinterpret_cast<LUXInit_Fn>(dlsym(object, "LUXInit"));
    if (!init) throw std::runtime_error("the library has no LUXInit");
    Require(init(LUX_HEADER_VERSION, &m_factory), "LUXInit");
    Require(m_factory->CreateContext(m_context.Out()), "CreateContext");
    Require(m_context.As<LUXContext1>()->InitDX11(nullptr, 110), "InitDX11");

    m_capture = Create(kCaptureId);
    const Setting capture[] = {
        {Capture::DisplayCaptureType, Integer(1)},
        {Capture::CaptureMode, Integer(0)},
        {Capture::MonitorIndex, Integer(0)},
        {Capture::CurrentTimeInterface, kNone},
        {Capture::FrameRate, kRate},
        {Capture::DuplicateOutput, Flag(false)},
        {Capture::DisplayEnableDCC, Flag(true)},
    };
    Apply(*m_capture.Get(), capture);
    Require(m_capture->Init(LUX_SURFACE_UNKNOWN, 0, 0), "the capture");

    m_converter = Create(kConverterId);
    const Setting converter[] = {
        {Converter::OutputSize, Size(size)},
        {Converter::MemoryType, Integer(3)},
        {Converter::ComputeDevice, Integer(3)},
        {Converter::ScaleType, Integer(0)},
        {Converter::ColorProfile, Integer(7)},
        {Converter::LinearRGB, Flag(false)},
        {Converter::OutputFormat, Integer(LUX_SURFACE_NV12)},
        {Converter::OutputColorPrimaries, Integer(1)},
        {Converter::OutputTransferChar, Integer(1)},
        {Converter::InputTonemapping, Integer(2)},
        {Converter::OutputTonemapping, Integer(2)},
    };
    Apply(*m_converter.Get(), converter);
    Require(m_converter->Init(LUX_SURFACE_BGRA, size.width, size.height), "the converter");

    m_encoder = Create(kAv1EncoderId);
    const Setting encoder[] = {
        {Av1Encoder::Av1Usage, Integer(2)},         {Av1Encoder::Av1QualityPreset, Integer(100)},
        {Av1Encoder::Av1FrameSize, Size(size)},     {Av1Encoder::Av1FrameRate, kRate},
        {Av1Encoder::Av1AlignmentMode, Integer(3)}, {Av1Encoder::Av1TargetBitrate, Integer(5'000'000)},
    };
    Apply(*m_encoder.Get(), encoder);
    Require(m_encoder->Init(LUX_SURFACE_NV12, size.width, size.height), "the encoder");
}

Ref<LUXComponent> BareLoop::Create(const wchar_t* id) {
    Ref<LUXComponent> component;
    Require(m_factory->CreateComponent(m_context.Get(), id, component.Out()), "CreateComponent");
    return component;
}

size_t BareLoop::Frame() {
    const long long begun = Now();
    const Ref<LUXData> captured = AwaitOutput(*m_capture.Get());
    const long long isCaptured = Now();
    Require(m_converter->SubmitInput(captured.Get()), "SubmitInput");
    const Ref<LUXData> converted = AwaitOutput(*m_converter.Get());
    const long long isConverted = Now();
    Require(m_encoder->SubmitInput(converted.Get()), "SubmitInput");
    const Ref<LUXData> packet = AwaitOutput(*m_encoder.Get());
    m_spent.capture += isCaptured - begun;
    m_spent.conversion += isConverted - isCaptured;
    m_spent.encoder += Now() - isConverted;
    return packet.As<LUXBuffer>()->GetSize();
}
