// The built runtime, as a caller loads it.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <utility>

#include "lux/Names.h"
#include "tests/unit/runtime/RuntimeFixture.h"

using namespace lux;

namespace {

class RuntimeLibrary : public testing::Test {
  protected:
    void SetUp() override {
        setenv("LUXRT_SCREEN", "test:320x200", 1);
        Load();
    }
    // The runtime reads the environment when it is loaded.
    void Load() {
        library = dlopen(LUXRT64_FILE, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(library, nullptr) << dlerror();
        init = reinterpret_cast<LUXInit_Fn>(dlsym(library, "LUXInit"));
        queryVersion = reinterpret_cast<LUXQueryVersion_Fn>(dlsym(library, "LUXQueryVersion"));
        ASSERT_NE(init, nullptr);
        ASSERT_NE(queryVersion, nullptr);
        ASSERT_EQ(init(LUX_HEADER_VERSION, &factory), LUX_OK);
        ASSERT_NE(factory, nullptr);
    }
    void TearDown() override { Unload(); }
    void Unload() {
        if (void* const loaded = std::exchange(library, nullptr)) {
            EXPECT_EQ(dlclose(loaded), 0);
        }
    }
    Ref<LUXContext> NewContext() {
        Ref<LUXContext> context;
        EXPECT_EQ(factory->CreateContext(context.Out()), LUX_OK);
        return context;
    }
    Ref<LUXComponent> NewComponent(LUXContext* context, const wchar_t* id) {
        Ref<LUXComponent> component;
        EXPECT_EQ(factory->CreateComponent(context, id, component.Out()), LUX_OK);
        return component;
    }

    void* library = nullptr;
    LUXInit_Fn init = nullptr;
    LUXQueryVersion_Fn queryVersion = nullptr;
    LUXFactory* factory = nullptr;
};

std::string OutputOf(const std::string& command) {
    std::string output;
    std::FILE* const stream = popen(command.c_str(), "r");
    if (!stream) {
        return output;
    }
    std::array<char, 256> part{};
    while (std::fgets(part.data(), part.size(), stream)) {
        output += part.data();
    }
    pclose(stream);
    return output;
}

}  // namespace

TEST_F(RuntimeLibrary, ItExportsTwoFunctionsAndNothingElse) {
    std::istringstream lines(OutputOf("nm --dynamic --defined-only --format=just-symbols " LUXRT64_FILE));
    std::set<std::string> names;
    for (std::string name; lines >> name;) {
        names.insert(name);
    }
    EXPECT_EQ(names, (std::set<std::string>{"LUXInit", "LUXQueryVersion"}));
}

TEST_F(RuntimeLibrary, ItsVersionSatisfiesTheService) {
    LUXVersion version = 0;
    EXPECT_EQ(queryVersion(&version), LUX_OK);
    EXPECT_GE(version, MakeVersion(1, 4, 38, 0));
    EXPECT_EQ(queryVersion(nullptr), LUX_INVALID_POINTER);
    LUXFactory* other = nullptr;
    EXPECT_EQ(init(version, &other), LUX_OK);
    EXPECT_EQ(other, factory);
    EXPECT_EQ(init(0, &other), LUX_OK);
    EXPECT_EQ(init(version + 1, &other), LUX_VERSION_TOO_OLD);
    EXPECT_EQ(other, nullptr);
    EXPECT_EQ(init(version, nullptr), LUX_INVALID_POINTER);
}

TEST_F(RuntimeLibrary, HevcAndAvcAreUnavailable) {
    const auto context = NewContext();
    for (const wchar_t* id : {kAvcEncoderId, kHevcEncoderId, L"LUXNothing", L""}) {
        auto* component = reinterpret_cast<LUXComponent*>(this);
        EXPECT_EQ(factory->CreateComponent(context.Get(), id, &component), LUX_NOT_SUPPORTED) << id;
        EXPECT_EQ(component, nullptr);
    }
}

TEST_F(RuntimeLibrary, TheEncodersCapabilitiesCanBeRead) {
    const auto context = NewContext();
    for (const wchar_t* id : {kCaptureId, kConverterId, kAv1EncoderId}) {
        const auto component = NewComponent(context.Get(), id);
        Ref<LUXCaps> caps;
        EXPECT_EQ(component->GetCaps(caps.Out()), LUX_OK);
        EXPECT_EQ(caps->GetAccelerationType(), LUX_ACCELERATION_SOFTWARE);
        EXPECT_EQ(component->GetCaps(nullptr), LUX_INVALID_POINTER);
    }
}

TEST_F(RuntimeLibrary, AContextIsBoundToADeviceOrToNone) {
    const auto context = NewContext();
    const auto extended = context.As<LUXContext1>();
    ASSERT_TRUE(extended);
    EXPECT_EQ(extended->InitDX11(nullptr, 110), LUX_OK);
    EXPECT_EQ(luxtest::Set(*context.Get(), Context::EnableDX11HP3D, true), LUX_OK);
    EXPECT_EQ(context->Terminate(), LUX_OK);
    EXPECT_EQ(extended->InitDX11(nullptr, 110), LUX_WRONG_STATE);
    LUXComponent* component = nullptr;
    EXPECT_EQ(factory->CreateComponent(context.Get(), kCaptureId, &component), LUX_WRONG_STATE);
    EXPECT_EQ(component, nullptr);
}

TEST_F(RuntimeLibrary, NullPointersAreRefused) {
    const auto context = NewContext();
    LUXComponent* component = nullptr;
    EXPECT_EQ(factory->CreateContext(nullptr), LUX_INVALID_POINTER);
    EXPECT_EQ(factory->CreateComponent(nullptr, kCaptureId, &component), LUX_INVALID_POINTER);
    EXPECT_EQ(factory->CreateComponent(context.Get(), nullptr, &component), LUX_INVALID_POINTER);
    EXPECT_EQ(factory->CreateComponent(context.Get(), kCaptureId, nullptr), LUX_INVALID_POINTER);
    EXPECT_EQ(factory->GetTrace(nullptr), LUX_INVALID_POINTER);
    EXPECT_EQ(factory->GetDebug(nullptr), LUX_INVALID_POINTER);
    void* result = &component;
    EXPECT_EQ(context->QueryInterface(nullptr, &result), LUX_INVALID_POINTER);
    EXPECT_EQ(context->QueryInterface(&LUXContext1::kId, nullptr), LUX_INVALID_POINTER);
    EXPECT_EQ(context->QueryInterface(&LUXBuffer::kId, &result), LUX_NO_INTERFACE);
    EXPECT_EQ(result, nullptr);
}

TEST_F(RuntimeLibrary, ReferencesAreCounted) {
    const auto context = NewContext();
    EXPECT_EQ(context->Acquire(), 2);
    EXPECT_EQ(context->Release(), 1);
    const auto extended = context.As<LUXContext1>();
    EXPECT_EQ(context->Acquire(), 3);
    EXPECT_EQ(context->Release(), 2);

    const auto capture = NewComponent(context.Get(), kCaptureId);
    ASSERT_EQ(capture->Init(LUX_SURFACE_UNKNOWN, 0, 0), LUX_OK);
    const auto data = luxtest::Query(*capture.Get());
    ASSERT_TRUE(data);
    // One belongs to the capture, which may have to repeat it.
    EXPECT_EQ(data->Acquire(), 3);
    EXPECT_EQ(data->Release(), 2);
    const auto surface = data.As<LUXSurface>();
    LUXPlane* const plane = surface->GetPlane(0);
    EXPECT_EQ(plane->Acquire(), 4);
    EXPECT_EQ(plane->Release(), 3);
    void* same = nullptr;
    EXPECT_EQ(plane->QueryInterface(&LUXPlane::kId, &same), LUX_OK);
    EXPECT_EQ(same, plane);
    EXPECT_EQ(plane->Release(), 3);
    EXPECT_EQ(plane->QueryInterface(&LUXSurface::kId, &same), LUX_NO_INTERFACE);
    EXPECT_EQ(plane->QueryInterface(nullptr, &same), LUX_INVALID_POINTER);
    EXPECT_EQ(capture->Terminate(), LUX_OK);
    EXPECT_EQ(data->Acquire(), 3);
    EXPECT_EQ(data->Release(), 2);
}

TEST_F(RuntimeLibrary, AWholeSessionRunsAndRunsAgain) {
    for (int session = 0; session < 2; ++session) {
        const auto context = NewContext();
        const auto capture = NewComponent(context.Get(), kCaptureId);
        const auto converter = NewComponent(context.Get(), kConverterId);
        const auto encoder = NewComponent(context.Get(), kAv1EncoderId);
        ASSERT_EQ(luxtest::Set(*converter.Get(), Converter::OutputSize, LUXSize{160, 100}), LUX_OK);
        ASSERT_EQ(capture->Init(LUX_SURFACE_UNKNOWN, 0, 0), LUX_OK);
        ASSERT_EQ(converter->Init(LUX_SURFACE_BGRA, 320, 200), LUX_OK);
        ASSERT_EQ(encoder->Init(LUX_SURFACE_NV12, 160, 100), LUX_OK);
        const auto picture = luxtest::Query(*capture.Get());
        ASSERT_TRUE(picture);
        ASSERT_EQ(converter->SubmitInput(picture.Get()), LUX_OK);
        const auto converted = luxtest::Query(*converter.Get());
        ASSERT_TRUE(converted);
        ASSERT_EQ(encoder->SubmitInput(converted.Get()), LUX_OK);
        const auto packet = luxtest::Query(*encoder.Get()).As<LUXBuffer>();
        ASSERT_TRUE(packet);
        EXPECT_GT(packet->GetSize(), 0u);
        for (const auto& component : {capture, converter, encoder}) {
            EXPECT_EQ(component->Flush(), LUX_OK);
            EXPECT_EQ(component->Terminate(), LUX_OK);
        }
        EXPECT_EQ(context->Terminate(), LUX_OK);
    }
}

TEST_F(RuntimeLibrary, AssertionsNeverOpenADialog) {
    LUXDebug* debug = nullptr;
    ASSERT_EQ(factory->GetDebug(&debug), LUX_OK);
    debug->EnableAssertions(false);
    LUXDebug* again = nullptr;
    EXPECT_EQ(factory->GetDebug(&again), LUX_OK);
    EXPECT_EQ(again, debug);
}

TEST_F(RuntimeLibrary, TheEnvironmentNamesAFileForTheTrace) {
    Unload();
    const auto file =
        std::filesystem::temp_directory_path() / ("luxrt64." + std::to_string(getpid()) + ".trace");
    setenv("LUXRT_TRACE", file.c_str(), 1);
    unsetenv("LUXRT_SCREEN");
    setenv("DISPLAY", ":7654", 1);
    Load();
    LUXTrace* trace = nullptr;
    ASSERT_EQ(factory->GetTrace(&trace), LUX_OK);
    trace->TraceText("Caller", 5, LUX_TRACE_INFO, "Service", "a line of the caller");
    {
        const auto context = NewContext();
        const auto capture = NewComponent(context.Get(), kCaptureId);
        EXPECT_EQ(capture->Init(LUX_SURFACE_UNKNOWN, 0, 0), LUX_OK);
        EXPECT_TRUE(luxtest::Query(*capture.Get()));
    }
    std::ostringstream text;
    text << std::ifstream(file).rdbuf();
    std::filesystem::remove(file);
    unsetenv("LUXRT_TRACE");
    EXPECT_NE(text.str().find("INFO    Service: a line of the caller (Caller:5)"), std::string::npos);
    EXPECT_NE(text.str().find("No X server at DISPLAY \":7654\""), std::string::npos);
    EXPECT_NE(text.str().find("WARNING luxrt: There is no desktop; the capture shows the test picture"),
              std::string::npos);
}
