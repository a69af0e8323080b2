// Names, types and values of the properties.
#include <gtest/gtest.h>

#include <array>
#include <span>

#include "lux/Names.h"
#include "runtime/software/Av1Encoder.h"
#include "runtime/software/Buffer.h"
#include "runtime/software/Capture.h"
#include "runtime/software/Context.h"
#include "runtime/software/Converter.h"
#include "tests/unit/runtime/RuntimeFixture.h"

using namespace lux;

namespace {

constexpr std::array kEveryType{LUX_VARIANT_EMPTY,       LUX_VARIANT_BOOL,     LUX_VARIANT_INT64,
                                LUX_VARIANT_SIZE,        LUX_VARIANT_RATE,     LUX_VARIANT_STRING,
                                LUX_VARIANT_WIDE_STRING, LUX_VARIANT_INTERFACE};

// A value that each property of this type takes.
LUXVariant PropertySample(const LUXPropertyRow& row) {
    switch (row.type) {
        case LUX_VARIANT_BOOL:
            return luxrt::ToVariant(true);
        case LUX_VARIANT_INT64:
            return luxrt::ToVariant(int64_t{1});
        case LUX_VARIANT_SIZE:
            return luxrt::ToVariant(LUXSize{640, 400});
        case LUX_VARIANT_RATE:
            return luxrt::ToVariant(LUXRate{25, 1});
        default:
            return luxtest::InterfaceValue(nullptr);
    }
}

bool SamePayload(const LUXVariant& left, const LUXVariant& right) {
    return left.type == right.type && (left.type == LUX_VARIANT_BOOL ? left.boolValue == right.boolValue
                                                                     : left.int64Value == right.int64Value);
}

void ExpectKnown(LUXPropertyStorage& object, std::span<const LUXPropertyRow> rows) {
    for (const LUXPropertyRow& row : rows) {
        LUXVariant before{};
        EXPECT_EQ(object.GetProperty(row.name, &before), LUX_OK) << row.name;
        EXPECT_EQ(before.type, row.type) << row.name;
        for (const LUXVariantType type : kEveryType) {
            if (type != row.type) {
                LUXVariant other{};
                other.type = type;
                EXPECT_EQ(object.SetProperty(row.name, &other), LUX_INVALID_TYPE) << row.name << " " << type;
            }
        }
        const LUXVariant sample = PropertySample(row);
        EXPECT_EQ(object.SetProperty(row.name, &sample), LUX_OK) << row.name;
        LUXVariant after{};
        EXPECT_EQ(object.GetProperty(row.name, &after), LUX_OK);
        EXPECT_TRUE(SamePayload(after, sample)) << row.name;
    }
    const LUXVariant value = luxrt::ToVariant(int64_t{1});
    LUXVariant none = value;
    EXPECT_EQ(object.SetProperty(L"NoSuchProperty", &value), LUX_UNKNOWN_PROPERTY);
    EXPECT_EQ(object.GetProperty(L"NoSuchProperty", &none), LUX_UNKNOWN_PROPERTY);
    EXPECT_EQ(none.type, LUX_VARIANT_EMPTY);
    EXPECT_EQ(object.SetProperty(nullptr, &value), LUX_INVALID_POINTER);
    EXPECT_EQ(object.SetProperty(L"FrameRate", nullptr), LUX_INVALID_POINTER);
    EXPECT_EQ(object.GetProperty(nullptr, &none), LUX_INVALID_POINTER);
    EXPECT_EQ(object.GetProperty(L"FrameRate", nullptr), LUX_INVALID_POINTER);
}

template <class T>
Ref<T> NewObject() {
    return Ref<T>::Adopt(new T());
}

}  // namespace

TEST(RuntimeProperties, EachObjectKnowsItsNamesAndTypes) {
    ExpectKnown(*NewObject<luxrt::Context>().Get(), kContextProperties);
    ExpectKnown(*NewObject<luxrt::Capture>().Get(), kCaptureProperties);
    ExpectKnown(*NewObject<luxrt::Converter>().Get(), kConverterProperties);
    ExpectKnown(*NewObject<luxrt::Av1Encoder>().Get(), kAv1EncoderProperties);
    ExpectKnown(*luxtest::NewSurface(LUX_SURFACE_NV12, {16, 16}).Get(), kSurfaceProperties);
}

TEST(RuntimeProperties, APacketAndTheCapabilitiesHaveNone) {
    auto block = std::shared_ptr<luxrt::Block>(luxrt::MakeHeapBlock(1));
    ExpectKnown(*Ref<luxrt::Buffer>::Adopt(new luxrt::Buffer(block, 1)).Get(), {});
    Ref<LUXCaps> caps;
    ASSERT_EQ(NewObject<luxrt::Av1Encoder>()->GetCaps(caps.Out()), LUX_OK);
    ExpectKnown(*caps.Get(), {});
    EXPECT_EQ(caps->GetAccelerationType(), LUX_ACCELERATION_SOFTWARE);
}

TEST(RuntimeProperties, NamesAreComparedWhole) {
    const auto capture = NewObject<luxrt::Capture>();
    EXPECT_EQ(luxtest::Set(*capture.Get(), L"FrameRat", LUXRate{30, 1}), LUX_UNKNOWN_PROPERTY);
    EXPECT_EQ(luxtest::Set(*capture.Get(), L"framerate", LUXRate{30, 1}), LUX_UNKNOWN_PROPERTY);
    EXPECT_EQ(luxtest::Set(*capture.Get(), L"FrameRate", LUXRate{30, 1}), LUX_OK);
}

TEST(RuntimeProperties, APropertyOfAnotherObjectIsUnknown) {
    EXPECT_EQ(luxtest::Set(*NewObject<luxrt::Capture>().Get(), Converter::OutputSize, LUXSize{64, 64}),
              LUX_UNKNOWN_PROPERTY);
    EXPECT_EQ(luxtest::Set(*NewObject<luxrt::Av1Encoder>().Get(), HevcEncoder::HevcUsage, int64_t{0}),
              LUX_UNKNOWN_PROPERTY);
}

TEST(RuntimeProperties, ARefusedValueLeavesTheOneBefore) {
    const auto capture = NewObject<luxrt::Capture>();
    for (const LUXRate rate :
         {LUXRate{0, 1}, LUXRate{30, 0}, LUXRate{1, 2}, LUXRate{1001, 1}, LUXRate{0, 0}}) {
        EXPECT_EQ(luxtest::Set(*capture.Get(), Capture::FrameRate, rate), LUX_INVALID_ARGUMENT);
    }
    LUXVariant value{};
    ASSERT_EQ(capture->GetProperty(Capture::FrameRate, &value), LUX_OK);
    EXPECT_EQ(value.rateValue, (LUXRate{30, 1}));
    for (const LUXRate rate : {LUXRate{1, 1}, LUXRate{1000, 1}, LUXRate{30000, 1001}}) {
        EXPECT_EQ(luxtest::Set(*capture.Get(), Capture::FrameRate, rate), LUX_OK);
    }
}

TEST(RuntimeProperties, SizesAndBitratesHaveLimits) {
    const auto encoder = NewObject<luxrt::Av1Encoder>();
    for (const LUXSize size : {LUXSize{0, 1}, LUXSize{-1, 4}, LUXSize{16385, 4}, LUXSize{4, 16385}}) {
        EXPECT_EQ(luxtest::Set(*encoder.Get(), Av1Encoder::Av1FrameSize, size), LUX_INVALID_ARGUMENT);
        EXPECT_EQ(luxtest::Set(*NewObject<luxrt::Converter>().Get(), Converter::OutputSize, size),
                  LUX_INVALID_ARGUMENT);
    }
    for (const int64_t rate : {int64_t{0}, int64_t{-5'000'000}, int64_t{2'000'000'001}, INT64_MAX}) {
        EXPECT_EQ(luxtest::Set(*encoder.Get(), Av1Encoder::Av1TargetBitrate, rate), LUX_INVALID_ARGUMENT);
    }
    EXPECT_EQ(luxtest::Set(*encoder.Get(), Av1Encoder::Av1TargetBitrate, int64_t{2'000'000'000}), LUX_OK);
    for (const int64_t usage : {-1, 4}) {
        EXPECT_EQ(luxtest::Set(*encoder.Get(), Av1Encoder::Av1Usage, usage), LUX_INVALID_ARGUMENT);
    }
    for (const int64_t preset : {-1, 101}) {
        EXPECT_EQ(luxtest::Set(*encoder.Get(), Av1Encoder::Av1QualityPreset, preset), LUX_INVALID_ARGUMENT);
    }
}

TEST(RuntimeProperties, AnInterfaceIsHeldOnceAndReleased) {
    const auto clock = Ref<luxtest::FakeClock>::Adopt(new luxtest::FakeClock());
    const auto count = [&] {
        clock->Acquire();
        return clock->Release();
    };
    auto capture = NewObject<luxrt::Capture>();
    const LUXVariant value = luxtest::InterfaceValue(clock.Get());
    ASSERT_EQ(capture->SetProperty(Capture::CurrentTimeInterface, &value), LUX_OK);
    EXPECT_EQ(count(), 2);
    ASSERT_EQ(capture->SetProperty(Capture::CurrentTimeInterface, &value), LUX_OK);
    EXPECT_EQ(count(), 2);
    LUXVariant read{};
    ASSERT_EQ(capture->GetProperty(Capture::CurrentTimeInterface, &read), LUX_OK);
    EXPECT_EQ(read.interfaceValue, clock.Get());
    EXPECT_EQ(count(), 3);
    read.interfaceValue->Release();
    const LUXVariant none = luxtest::InterfaceValue(nullptr);
    ASSERT_EQ(capture->SetProperty(Capture::CurrentTimeInterface, &none), LUX_OK);
    EXPECT_EQ(count(), 1);
    ASSERT_EQ(capture->SetProperty(Capture::CurrentTimeInterface, &value), LUX_OK);
    capture.Reset();
    EXPECT_EQ(count(), 1);
}

TEST(RuntimeProperties, OnlyAClockServesAsTheCapturesClock) {
    const auto surface = luxtest::NewSurface(LUX_SURFACE_BGRA, {16, 16});
    const LUXVariant value = luxtest::InterfaceValue(surface.Get());
    EXPECT_EQ(NewObject<luxrt::Capture>()->SetProperty(Capture::CurrentTimeInterface, &value),
              LUX_INVALID_ARGUMENT);
}
