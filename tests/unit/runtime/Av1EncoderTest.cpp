// Packets of the encoder, and what a decoder makes of them.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <random>

#include "lux/Names.h"
#include "runtime/software/Av1Encoder.h"
#include "runtime/software/Converter.h"
#include "runtime/software/TestPicture.h"
#include "tests/unit/runtime/Dav1dDecoder.h"
#include "tests/unit/runtime/RuntimeFixture.h"

using namespace lux;

namespace {

// Of red, green and blue, in dB.
double PsnrOf(const std::vector<uint8_t>& painted, const std::vector<uint8_t>& shown) {
    double error = 0;
    for (size_t index = 0; index < painted.size(); ++index) {
        if (index % 4 != 3) {
            const double difference = static_cast<double>(painted[index]) - shown.at(index);
            error += difference * difference;
        }
    }
    const double mean = error / (static_cast<double>(painted.size()) * 3 / 4);
    return mean == 0 ? 100 : 10 * std::log10(255.0 * 255.0 / mean);
}

// White paper with dark signs of 6 by 12 pixels, a blue title and a grey column.
std::vector<uint8_t> PaintedPage(LUXSize size, unsigned seed) {
    std::mt19937 random(seed);
    std::vector<uint8_t> pixels(static_cast<size_t>(size.width) * static_cast<size_t>(size.height) * 4, 255);
    const auto fill = [&](int left, int top, int width, int height, std::array<uint8_t, 3> blueGreenRed) {
        for (int y = top; y < std::min(top + height, size.height); ++y) {
            for (int x = left; x < std::min(left + width, size.width); ++x) {
                std::copy(blueGreenRed.begin(), blueGreenRed.end(),
                          &pixels.at(static_cast<size_t>((y * size.width + x) * 4)));
            }
        }
    };
    fill(0, 0, size.width, 16, {160, 80, 32});
    fill(0, 16, 64, size.height, {220, 220, 220});
    for (int y = 20; y < size.height; y += 12) {
        for (int x = 72; x < size.width; x += 6) {
            for (unsigned strokes = random() % 4; strokes > 0; --strokes) {
                const bool upright = random() % 2 == 0;
                fill(x + static_cast<int>(random() % 4), y + static_cast<int>(random() % 8), upright ? 1 : 4,
                     upright ? 8 : 1, {20, 20, 20});
            }
        }
    }
    return pixels;
}

class RuntimeEncoder : public testing::Test {
  protected:
    void Start(LUXSize pictureSize, int64_t bitrate = 5'000'000) {
        size = pictureSize;
        ASSERT_EQ(luxtest::Set(*encoder.Get(), Av1Encoder::Av1TargetBitrate, bitrate), LUX_OK);
        ASSERT_EQ(luxtest::Set(*encoder.Get(), Av1Encoder::Av1FrameSize, size), LUX_OK);
        ASSERT_EQ(encoder->Init(LUX_SURFACE_NV12, size.width, size.height), LUX_OK);
        ASSERT_EQ(converter->Init(LUX_SURFACE_BGRA, size.width, size.height), LUX_OK);
    }
    void Stop() {
        EXPECT_EQ(converter->Terminate(), LUX_OK);
        EXPECT_EQ(encoder->Terminate(), LUX_OK);
    }
    Ref<LUXData> Picture(const std::vector<uint8_t>& pixels) {
        const auto painted = luxtest::NewSurface(LUX_SURFACE_BGRA, size);
        std::memcpy(luxtest::PixelsOf(*painted.Get()), pixels.data(), pixels.size());
        EXPECT_EQ(converter->SubmitInput(painted.Get()), LUX_OK);
        return luxtest::Query(*converter.Get());
    }
    std::vector<uint8_t> Encode(const std::vector<uint8_t>& pixels) {
        EXPECT_EQ(encoder->SubmitInput(Picture(pixels).Get()), LUX_OK);
        const auto packet = luxtest::Query(*encoder.Get()).As<LUXBuffer>();
        EXPECT_TRUE(packet);
        if (!packet) {
            return {};
        }
        EXPECT_FALSE(luxtest::Query(*encoder.Get()));
        const auto* const bytes = static_cast<const uint8_t*>(packet->GetNative());
        return {bytes, bytes + packet->GetSize()};
    }
    // Encodes and decodes one picture, which must come out of its own packet.
    luxtest::DecodedPicture Through(const std::vector<uint8_t>& pixels) {
        auto pictures = decoder.Decode(Encode(pixels));
        EXPECT_EQ(pictures.size(), 1u);
        return pictures.empty() ? luxtest::DecodedPicture{} : std::move(pictures.front());
    }

    LUXSize size{};
    Ref<luxrt::Converter> converter = Ref<luxrt::Converter>::Adopt(new luxrt::Converter());
    Ref<luxrt::Av1Encoder> encoder = Ref<luxrt::Av1Encoder>::Adopt(new luxrt::Av1Encoder());
    luxtest::Dav1dDecoder decoder;
};

size_t ThreadsOfThisProcess() {
    return static_cast<size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/task"), {}));
}

}  // namespace

TEST_F(RuntimeEncoder, APaintedPageIsDecodedAsItWasPainted) {
    Start({640, 400});
    const auto page = PaintedPage(size, 1);
    const auto shown = Through(page);
    EXPECT_EQ(shown.size, size);
    EXPECT_TRUE(shown.key);
    EXPECT_GE(PsnrOf(page, shown.pixels), 35);
    RecordProperty("PSNR", std::to_string(PsnrOf(page, shown.pixels)));
}

TEST_F(RuntimeEncoder, EachPictureOfATestPictureHasItsOwnPacket) {
    Start({320, 200});
    for (uint32_t frame = 0; frame < 40; ++frame) {
        std::vector<uint8_t> pixels(size_t{320} * 200 * 4);
        luxrt::PaintTestPicture(pixels.data(), size, frame);
        const auto shown = Through(pixels);
        EXPECT_EQ(shown.key, frame == 0) << frame;
        EXPECT_GE(PsnrOf(pixels, shown.pixels), 30) << frame;
    }
}

TEST_F(RuntimeEncoder, AnotherPageIsReadableAtOnceAndSharperLater) {
    Start({640, 400});
    Through(PaintedPage(size, 1));
    const auto page = PaintedPage(size, 2);
    const double first = PsnrOf(page, Through(page).pixels);
    EXPECT_GE(first, 35);
    for (int frame = 0; frame < 15; ++frame) {
        Through(page);
    }
    EXPECT_GT(PsnrOf(page, Through(page).pixels), first + 3);
}

TEST_F(RuntimeEncoder, AnUnchangedPictureCostsFewBytes) {
    Start({640, 400});
    const auto page = PaintedPage(size, 1);
    for (int frame = 0; frame < 30; ++frame) {
        Encode(page);
    }
    EXPECT_LT(Encode(page).size(), 1000u);
}

TEST_F(RuntimeEncoder, TheBitrateBoundsTheBytes) {
    const auto bytesAt = [&](int64_t bitrate) {
        Start({320, 200}, bitrate);
        size_t bytes = 0;
        for (unsigned frame = 0; frame < 60; ++frame) {
            bytes += Encode(PaintedPage(size, frame)).size();
        }
        Stop();
        return bytes;
    };
    const size_t most = bytesAt(20'000'000);
    const size_t least = bytesAt(300'000);
    EXPECT_LT(least, most / 2) << most;
}

TEST_F(RuntimeEncoder, TheColoursAreAnnounced) {
    Start({64, 64});
    const auto sequence = Through(PaintedPage(size, 1)).sequence;
    EXPECT_EQ(sequence.pri, DAV1D_COLOR_PRI_BT709);
    EXPECT_EQ(sequence.trc, DAV1D_TRC_BT709);
    EXPECT_EQ(sequence.mtrx, DAV1D_MC_BT601);
    EXPECT_EQ(sequence.color_range, 0);
    EXPECT_EQ(sequence.profile, 0);
    EXPECT_EQ(sequence.hbd, 0);
}

TEST_F(RuntimeEncoder, AnySizeIsEncoded) {
    for (const LUXSize odd : {LUXSize{321, 201}, LUXSize{16, 16}, LUXSize{1, 1}, LUXSize{1366, 768}}) {
        Start(odd);
        const auto page = PaintedPage(size, 3);
        const auto shown = Through(page);
        EXPECT_EQ(shown.size, odd);
        EXPECT_GE(PsnrOf(page, shown.pixels), 35) << odd.width;
        Stop();
        EXPECT_EQ(luxtest::Set(*encoder.Get(), Av1Encoder::Av1FrameSize, LUXSize{}), LUX_OK);
    }
}

TEST_F(RuntimeEncoder, EveryPresetAndRateEncodes) {
    for (const int64_t preset : {0, 70, 80, 90, 100}) {
        for (const LUXRate rate : {LUXRate{1, 1}, LUXRate{30, 1}, LUXRate{60000, 1001}, LUXRate{1000, 1}}) {
            ASSERT_EQ(luxtest::Set(*encoder.Get(), Av1Encoder::Av1QualityPreset, preset), LUX_OK);
            ASSERT_EQ(luxtest::Set(*encoder.Get(), Av1Encoder::Av1FrameRate, rate), LUX_OK);
            Start({64, 64});
            EXPECT_FALSE(Encode(PaintedPage(size, 1)).empty());
            Stop();
        }
    }
}

TEST_F(RuntimeEncoder, ASecondPictureHasToWaitForThePacket) {
    Start({64, 64});
    const auto picture = Picture(PaintedPage(size, 1));
    EXPECT_FALSE(luxtest::Query(*encoder.Get()));
    EXPECT_EQ(encoder->SubmitInput(picture.Get()), LUX_OK);
    EXPECT_EQ(encoder->SubmitInput(picture.Get()), LUX_INPUT_FULL);
    EXPECT_TRUE(luxtest::Query(*encoder.Get()));
    EXPECT_EQ(encoder->SubmitInput(picture.Get()), LUX_OK);
    EXPECT_EQ(encoder->Flush(), LUX_OK);
    EXPECT_FALSE(luxtest::Query(*encoder.Get()));
}

TEST_F(RuntimeEncoder, WhatWasNotAnnouncedIsRefused) {
    EXPECT_EQ(encoder->Init(LUX_SURFACE_BGRA, 64, 64), LUX_NOT_SUPPORTED);
    EXPECT_EQ(encoder->Init(LUX_SURFACE_NV12, 64, 0), LUX_INVALID_ARGUMENT);
    ASSERT_EQ(luxtest::Set(*encoder.Get(), Av1Encoder::Av1FrameSize, LUXSize{64, 32}), LUX_OK);
    EXPECT_EQ(encoder->Init(LUX_SURFACE_NV12, 64, 64), LUX_INVALID_ARGUMENT);
    Start({64, 64});
    EXPECT_EQ(encoder->SubmitInput(luxtest::NewSurface(LUX_SURFACE_NV12, {64, 32}).Get()),
              LUX_INVALID_ARGUMENT);
    EXPECT_EQ(encoder->SubmitInput(luxtest::NewSurface(LUX_SURFACE_BGRA, {64, 64}).Get()),
              LUX_INVALID_ARGUMENT);
    EXPECT_EQ(encoder->SubmitInput(nullptr), LUX_INVALID_POINTER);
    EXPECT_FALSE(luxtest::Query(*encoder.Get()));
}

TEST_F(RuntimeEncoder, ASessionAfterTheFirstBeginsWithAKeyFrame) {
    for (int session = 0; session < 3; ++session) {
        Start({64, 64});
        EXPECT_EQ(encoder->Init(LUX_SURFACE_NV12, 64, 64), LUX_WRONG_STATE);
        EXPECT_TRUE(Through(PaintedPage(size, 1)).key);
        EXPECT_FALSE(Through(PaintedPage(size, 1)).key);
        Stop();
        Ref<LUXData> data;
        EXPECT_EQ(encoder->QueryOutput(data.Out()), LUX_WRONG_STATE);
        EXPECT_EQ(encoder->Flush(), LUX_WRONG_STATE);
    }
}

TEST_F(RuntimeEncoder, ItHasThreadsBetweenInitAndTerminateOnly) {
    const size_t before = ThreadsOfThisProcess();
    Start({640, 400});
    Encode(PaintedPage(size, 1));
    EXPECT_GT(ThreadsOfThisProcess(), before);
    Stop();
    EXPECT_EQ(ThreadsOfThisProcess(), before);
}

TEST_F(RuntimeEncoder, APacketOutlivesTheEncoder) {
    Start({64, 64});
    EXPECT_EQ(encoder->SubmitInput(Picture(PaintedPage(size, 1)).Get()), LUX_OK);
    const auto packet = luxtest::Query(*encoder.Get()).As<LUXBuffer>();
    Stop();
    encoder.Reset();
    const auto* const bytes = static_cast<const uint8_t*>(packet->GetNative());
    EXPECT_EQ(decoder.Decode({bytes, packet->GetSize()}).size(), 1u);
}
