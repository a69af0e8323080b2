// Colours and scaling of the converter.
#include <gtest/gtest.h>

#include <array>
#include <cmath>

#include "lux/Names.h"
#include "runtime/software/Converter.h"
#include "tests/unit/runtime/RuntimeFixture.h"

using namespace lux;

namespace {

class RuntimeConverter : public testing::Test {
  protected:
    void Start(LUXSize from, LUXSize to = {}) {
        input = from;
        ASSERT_EQ(luxtest::Set(*converter.Get(), Converter::OutputSize, to), LUX_OK);
        ASSERT_EQ(converter->Init(LUX_SURFACE_BGRA, from.width, from.height), LUX_OK);
    }
    Ref<LUXSurface> Convert(const Ref<luxrt::Surface>& surface) {
        EXPECT_EQ(converter->SubmitInput(surface.Get()), LUX_OK);
        const auto output = luxtest::Query(*converter.Get()).As<LUXSurface>();
        EXPECT_TRUE(output);
        return output;
    }
    Ref<luxrt::Surface> OneColour(uint8_t red, uint8_t green, uint8_t blue) const {
        auto surface = luxtest::NewSurface(LUX_SURFACE_BGRA, input);
        uint8_t* pixel = luxtest::PixelsOf(*surface.Get());
        for (int32_t count = input.width * input.height; count > 0; --count, pixel += 4) {
            pixel[0] = blue;
            pixel[1] = green;
            pixel[2] = red;
            // The fourth byte of a screen's pixel has no meaning.
            pixel[3] = static_cast<uint8_t>(count);
        }
        return surface;
    }

    LUXSize input{};
    Ref<luxrt::Converter> converter = Ref<luxrt::Converter>::Adopt(new luxrt::Converter());
};

// Every pixel of the picture.
void ExpectColour(LUXSurface& surface, int y, int u, int v) {
    const luxrt::PlaneView luma = luxrt::ViewPlane(surface, 0);
    const luxrt::PlaneView chroma = luxrt::ViewPlane(surface, 1);
    for (int32_t row = 0; row < luma.size.height; ++row) {
        for (int32_t column = 0; column < luma.size.width; ++column) {
            ASSERT_NEAR(luma.bytes[row * luma.pitch + column], y, 1) << column << "," << row;
            const uint8_t* const pair = chroma.bytes + row / 2 * chroma.pitch + column / 2 * 2;
            // libyuv's factors have 7 bits.
            ASSERT_NEAR(pair[0], u, 2) << column << "," << row;
            ASSERT_NEAR(pair[1], v, 2) << column << "," << row;
        }
    }
}

struct NamedColour {
    uint8_t red, green, blue;
};

void ExpectBt601(LUXSurface& surface, NamedColour colour) {
    const double red = colour.red / 255.0;
    const double green = colour.green / 255.0;
    const double blue = colour.blue / 255.0;
    const double luma = 0.299 * red + 0.587 * green + 0.114 * blue;
    ExpectColour(surface, static_cast<int>(std::lround(16 + 219 * luma)),
                 static_cast<int>(std::lround(128 + 224 * (blue - luma) / 1.772)),
                 static_cast<int>(std::lround(128 + 224 * (red - luma) / 1.402)));
}

constexpr std::array<NamedColour, 9> kColours{{{0, 0, 0},
                                               {255, 255, 255},
                                               {255, 0, 0},
                                               {0, 255, 0},
                                               {0, 0, 255},
                                               {255, 255, 0},
                                               {0, 255, 255},
                                               {128, 128, 128},
                                               {30, 90, 200}}};

}  // namespace

TEST_F(RuntimeConverter, ColoursAreThoseOfBt601InStudioRange) {
    Start({64, 32});
    for (const NamedColour colour : kColours) {
        const auto output = Convert(OneColour(colour.red, colour.green, colour.blue));
        ASSERT_TRUE(output);
        EXPECT_EQ(output->GetFormat(), LUX_SURFACE_NV12);
        EXPECT_EQ(output->GetPlanesCount(), 2u);
        EXPECT_EQ(output->GetPlane(2), nullptr);
        ExpectBt601(*output.Get(), colour);
    }
}

TEST_F(RuntimeConverter, ScalingKeepsColours) {
    for (const LUXSize size :
         {LUXSize{32, 16}, LUXSize{100, 70}, LUXSize{31, 17}, LUXSize{64, 16}, LUXSize{1, 1}}) {
        Start({64, 32}, size);
        const auto output = Convert(OneColour(30, 90, 200));
        ASSERT_TRUE(output);
        EXPECT_EQ(luxtest::SizeOf(*output.Get()), size);
        ExpectBt601(*output.Get(), {30, 90, 200});
        converter->Terminate();
    }
}

TEST_F(RuntimeConverter, OddSizesHaveAnotherColumnAndRowOfColour) {
    for (const LUXSize size : {LUXSize{33, 17}, LUXSize{1, 1}, LUXSize{1, 5}, LUXSize{1921, 3}}) {
        Start(size);
        const auto output = Convert(OneColour(0, 255, 255));
        ASSERT_TRUE(output);
        EXPECT_EQ(output->GetPlane(1)->GetWidth(), (size.width + 1) / 2);
        EXPECT_EQ(output->GetPlane(1)->GetHeight(), (size.height + 1) / 2);
        ExpectBt601(*output.Get(), {0, 255, 255});
        converter->Terminate();
    }
}

TEST_F(RuntimeConverter, ScalingKeepsThePlacesOfThePicture) {
    Start({128, 64}, {64, 32});
    auto surface = OneColour(0, 0, 0);
    // The right half is white.
    for (size_t row = 0; row < 64; ++row) {
        std::memset(luxtest::PixelsOf(*surface.Get()) + (row * 128 + 64) * 4, 255, size_t{64} * 4);
    }
    const auto output = Convert(surface);
    const luxrt::PlaneView luma = luxrt::ViewPlane(*output.Get(), 0);
    for (int32_t row = 0; row < 32; ++row) {
        EXPECT_EQ(luma.bytes[row * luma.pitch + 31], 16);
        EXPECT_EQ(luma.bytes[row * luma.pitch + 32], 235);
    }
}

TEST_F(RuntimeConverter, OneInputGivesOneOutputAndASecondHasToWait) {
    Start({16, 16});
    const auto surface = OneColour(1, 2, 3);
    EXPECT_FALSE(luxtest::Query(*converter.Get()));
    EXPECT_EQ(converter->SubmitInput(surface.Get()), LUX_OK);
    EXPECT_EQ(converter->SubmitInput(surface.Get()), LUX_INPUT_FULL);
    EXPECT_TRUE(luxtest::Query(*converter.Get()));
    EXPECT_FALSE(luxtest::Query(*converter.Get()));
    EXPECT_EQ(converter->SubmitInput(surface.Get()), LUX_OK);
    EXPECT_EQ(converter->Flush(), LUX_OK);
    EXPECT_FALSE(luxtest::Query(*converter.Get()));
}

TEST_F(RuntimeConverter, APictureThatWasNotAnnouncedIsRefused) {
    Start({16, 16});
    EXPECT_EQ(converter->SubmitInput(luxtest::NewSurface(LUX_SURFACE_BGRA, {16, 17}).Get()),
              LUX_INVALID_ARGUMENT);
    EXPECT_EQ(converter->SubmitInput(luxtest::NewSurface(LUX_SURFACE_NV12, {16, 16}).Get()),
              LUX_INVALID_ARGUMENT);
    EXPECT_EQ(converter->SubmitInput(nullptr), LUX_INVALID_POINTER);
    EXPECT_FALSE(luxtest::Query(*converter.Get()));
}

TEST_F(RuntimeConverter, WhatItCannotMakeIsNotSupported) {
    EXPECT_EQ(converter->Init(LUX_SURFACE_P010, 16, 16), LUX_NOT_SUPPORTED);
    EXPECT_EQ(converter->Init(LUX_SURFACE_BGRA, 0, 16), LUX_INVALID_ARGUMENT);
    EXPECT_EQ(converter->Init(LUX_SURFACE_BGRA, 16, 16385), LUX_INVALID_ARGUMENT);
    constexpr std::array<std::pair<const wchar_t*, int64_t>, 5> kWrong{
        {{Converter::OutputFormat, LUX_SURFACE_P010},
         {Converter::ColorProfile, 1},
         {Converter::OutputColorPrimaries, 9},
         {Converter::OutputTransferChar, 16},
         {Converter::ScaleType, 1}}};
    for (const auto& [name, value] : kWrong) {
        const auto other = Ref<luxrt::Converter>::Adopt(new luxrt::Converter());
        ASSERT_EQ(luxtest::Set(*other.Get(), name, value), LUX_OK);
        EXPECT_EQ(other->Init(LUX_SURFACE_BGRA, 16, 16), LUX_NOT_SUPPORTED) << name;
    }
    ASSERT_EQ(luxtest::Set(*converter.Get(), Converter::LinearRGB, true), LUX_OK);
    EXPECT_EQ(converter->Init(LUX_SURFACE_BGRA, 16, 16), LUX_NOT_SUPPORTED);
}

TEST_F(RuntimeConverter, ItNeedsInitWhichMayFollowTerminate) {
    input = {16, 16};
    const auto surface = OneColour(1, 2, 3);
    Ref<LUXData> data;
    EXPECT_EQ(converter->SubmitInput(surface.Get()), LUX_WRONG_STATE);
    EXPECT_EQ(converter->QueryOutput(data.Out()), LUX_WRONG_STATE);
    EXPECT_EQ(converter->QueryOutput(nullptr), LUX_INVALID_POINTER);
    EXPECT_EQ(converter->Flush(), LUX_WRONG_STATE);
    EXPECT_EQ(converter->Terminate(), LUX_OK);
    Start({16, 16});
    EXPECT_EQ(converter->Init(LUX_SURFACE_BGRA, 16, 16), LUX_WRONG_STATE);
    EXPECT_EQ(converter->SubmitInput(surface.Get()), LUX_OK);
    EXPECT_EQ(converter->Terminate(), LUX_OK);
    EXPECT_EQ(converter->SubmitInput(surface.Get()), LUX_WRONG_STATE);
    Start({16, 16});
    EXPECT_FALSE(luxtest::Query(*converter.Get()));
    EXPECT_TRUE(Convert(surface));
}
