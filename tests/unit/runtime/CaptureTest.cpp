// When the capture delivers, with a screen and a clock that the test moves.
#include <gtest/gtest.h>

#include "lux/Names.h"
#include "runtime/software/Capture.h"
#include "runtime/software/TestPicture.h"
#include "tests/unit/runtime/RuntimeFixture.h"

using namespace lux;

namespace {

class RuntimeCapture : public testing::Test {
  protected:
    void Start(LUXRate rate = {30, 1}) {
        ASSERT_EQ(luxtest::Set(*capture.Get(), Capture::FrameRate, rate), LUX_OK);
        const LUXVariant time = luxtest::InterfaceValue(clock.Get());
        ASSERT_EQ(capture->SetProperty(Capture::CurrentTimeInterface, &time), LUX_OK);
        ASSERT_EQ(capture->Init(LUX_SURFACE_UNKNOWN, 0, 0), LUX_OK);
    }
    bool Delivers() { return static_cast<bool>(luxtest::Query(*capture.Get())); }
    // Asks each millisecond for so long; returns the times of the pictures since then, in milliseconds.
    std::vector<int64_t> Watch(int64_t milliseconds, bool changing) {
        std::vector<int64_t> times;
        for (int64_t time = 0; time < milliseconds; ++time) {
            screen.changed |= changing;
            if (Delivers()) {
                times.push_back(time);
            }
            clock->Advance(1);
        }
        return times;
    }

    luxtest::FakeScreenState screen;
    bool desktop = true;
    Ref<luxtest::FakeClock> clock = Ref<luxtest::FakeClock>::Adopt(new luxtest::FakeClock());
    Ref<luxrt::Capture> capture = Ref<luxrt::Capture>::Adopt(
        new luxrt::Capture([this](int64_t monitor) -> std::unique_ptr<luxrt::ScreenSource> {
            ++screen.opened;
            screen.monitor = monitor;
            if (!desktop) {
                return nullptr;
            }
            return std::make_unique<luxtest::FakeScreen>(screen);
        }));
};

}  // namespace

TEST_F(RuntimeCapture, TheFirstPictureComesAtOnce) {
    screen.changed = true;
    Start();
    EXPECT_TRUE(Delivers());
    EXPECT_FALSE(Delivers());
}

TEST_F(RuntimeCapture, AChangeComesWithTheFirstQuestionAfterThePeriod) {
    Start();
    ASSERT_TRUE(Delivers());
    clock->Advance(100);
    EXPECT_FALSE(Delivers());
    screen.changed = true;
    EXPECT_TRUE(Delivers());
}

TEST_F(RuntimeCapture, AChangeWithinThePeriodWaitsForItsEnd) {
    Start();
    ASSERT_TRUE(Delivers());
    EXPECT_EQ(Watch(40, true), (std::vector<int64_t>{34}));
}

TEST_F(RuntimeCapture, ItKeepsToTheFrameRate) {
    Start();
    EXPECT_NEAR(static_cast<double>(Watch(10'000, true).size()), 300, 1);
}

TEST_F(RuntimeCapture, AnyFrameRateIsKept) {
    Start({60000, 1001});
    EXPECT_NEAR(static_cast<double>(Watch(10'000, true).size()), 599, 1);
}

TEST_F(RuntimeCapture, ACallerAtTheSameRateIsServedAtEachQuestionThoughItIsSometimesLate) {
    Start();
    const int64_t start = clock->now;
    for (int64_t index = 0; index < 300; ++index) {
        // Up to 14 ms late, in no order.
        clock->now = start + (index * luxrt::kSecond / 30) + (index * 7919 % 15) * luxrt::kMillisecond;
        screen.changed = true;
        EXPECT_TRUE(Delivers()) << index;
    }
}

TEST_F(RuntimeCapture, AfterAPauseTwoPicturesAreHalfAPeriodApart) {
    Start();
    ASSERT_TRUE(Delivers());
    clock->Advance(10'000);
    EXPECT_EQ(Watch(100, true), (std::vector<int64_t>{0, 17, 50, 84}));
}

TEST_F(RuntimeCapture, AnUnchangedPictureIsRepeatedWithin500Milliseconds) {
    Start();
    EXPECT_EQ(Watch(2'000, false), (std::vector<int64_t>{0, 490, 980, 1470, 1960}));
}

TEST_F(RuntimeCapture, TheRepeatedPictureIsTheSameSurface) {
    Start();
    const auto first = luxtest::Query(*capture.Get());
    clock->Advance(500);
    const auto second = luxtest::Query(*capture.Get());
    EXPECT_EQ(first.Get(), second.Get());
    EXPECT_TRUE(first);
}

TEST_F(RuntimeCapture, AScreenThatDoesNotAnswerIsRepeatedToo) {
    Start();
    ASSERT_TRUE(Delivers());
    screen.changed = true;
    screen.stuck = true;
    EXPECT_EQ(Watch(600, false), (std::vector<int64_t>{490}));
    screen.stuck = false;
    EXPECT_TRUE(Delivers());
}

TEST_F(RuntimeCapture, NothingIsDeliveredBeforeTheScreenHasAnswered) {
    screen.stuck = true;
    Start();
    EXPECT_TRUE(Watch(2'000, true).empty());
    screen.stuck = false;
    EXPECT_TRUE(Delivers());
}

TEST_F(RuntimeCapture, ADesktopThatDeliversNothingIsReplacedByTheTestPictureUntilItDoes) {
    screen.stuck = true;
    Start();
    EXPECT_TRUE(Watch(10'000, true).empty());
    auto data = luxtest::Query(*capture.Get());
    ASSERT_TRUE(data);
    EXPECT_EQ(luxtest::SizeOf(*data.Get()), luxrt::TestPicture::kSize);
    EXPECT_EQ(screen.opened, 1);
    screen.stuck = false;
    clock->Advance(40);
    data = luxtest::Query(*capture.Get());
    ASSERT_TRUE(data);
    EXPECT_EQ(luxtest::SizeOf(*data.Get()), (LUXSize{64, 48}));
    EXPECT_FALSE(Watch(5'000, true).empty());
    EXPECT_EQ(screen.opened, 1);
}

TEST_F(RuntimeCapture, DuplicateOutputRepeatsInEachPeriod) {
    ASSERT_EQ(luxtest::Set(*capture.Get(), Capture::DuplicateOutput, true), LUX_OK);
    Start({50, 1});
    EXPECT_EQ(Watch(100, false), (std::vector<int64_t>{0, 20, 40, 60, 80}));
}

TEST_F(RuntimeCapture, ADesktopOfAnotherSizeHasSurfacesOfThatSize) {
    Start();
    auto data = luxtest::Query(*capture.Get());
    EXPECT_EQ(luxtest::SizeOf(*data.Get()), (LUXSize{64, 48}));
    screen.size = {100, 30};
    screen.changed = true;
    clock->Advance(40);
    data = luxtest::Query(*capture.Get());
    EXPECT_EQ(luxtest::SizeOf(*data.Get()), (LUXSize{100, 30}));
}

TEST_F(RuntimeCapture, FlushMakesTheNextPictureTheFirst) {
    Start();
    ASSERT_TRUE(Delivers());
    EXPECT_EQ(capture->Flush(), LUX_OK);
    screen.changed = true;
    EXPECT_TRUE(Delivers());
}

TEST_F(RuntimeCapture, TheMonitorIsOpenedByItsIndex) {
    ASSERT_EQ(luxtest::Set(*capture.Get(), Capture::MonitorIndex, int64_t{3}), LUX_OK);
    Start();
    EXPECT_EQ(screen.monitor, 3);
}

TEST_F(RuntimeCapture, WithoutADesktopItShowsTheTestPictureUntilThereIsOne) {
    desktop = false;
    Start();
    auto data = luxtest::Query(*capture.Get());
    ASSERT_TRUE(data);
    EXPECT_EQ(luxtest::SizeOf(*data.Get()), luxrt::TestPicture::kSize);
    Watch(950, false);
    EXPECT_EQ(screen.opened, 1);
    Watch(100, false);
    EXPECT_EQ(screen.opened, 2);
    desktop = true;
    Watch(1'100, false);
    EXPECT_EQ(screen.opened, 3);
    screen.changed = true;
    clock->Advance(40);
    data = luxtest::Query(*capture.Get());
    ASSERT_TRUE(data);
    EXPECT_EQ(luxtest::SizeOf(*data.Get()), (LUXSize{64, 48}));
}

TEST_F(RuntimeCapture, ADesktopThatGoesIsReplacedByTheTestPicture) {
    Start();
    ASSERT_TRUE(Delivers());
    screen.alive = false;
    desktop = false;
    clock->Advance(40);
    auto data = luxtest::Query(*capture.Get());
    ASSERT_TRUE(data);
    EXPECT_EQ(luxtest::SizeOf(*data.Get()), luxrt::TestPicture::kSize);
    EXPECT_EQ(screen.open, 0);
    screen.alive = true;
    screen.changed = true;
    desktop = true;
    clock->Advance(1'000);
    data = luxtest::Query(*capture.Get());
    ASSERT_TRUE(data);
    EXPECT_EQ(luxtest::SizeOf(*data.Get()), (LUXSize{64, 48}));
}

TEST_F(RuntimeCapture, ItNeedsInitAndTakesNoInput) {
    Ref<LUXData> data;
    EXPECT_EQ(capture->QueryOutput(data.Out()), LUX_WRONG_STATE);
    EXPECT_EQ(capture->Flush(), LUX_WRONG_STATE);
    EXPECT_EQ(capture->Terminate(), LUX_OK);
    EXPECT_EQ(capture->Init(LUX_SURFACE_BGRA, 0, 0), LUX_INVALID_ARGUMENT);
    EXPECT_EQ(capture->Init(LUX_SURFACE_UNKNOWN, 64, 48), LUX_INVALID_ARGUMENT);
    Start();
    EXPECT_EQ(capture->Init(LUX_SURFACE_UNKNOWN, 0, 0), LUX_WRONG_STATE);
    EXPECT_EQ(capture->QueryOutput(nullptr), LUX_INVALID_POINTER);
    EXPECT_EQ(capture->SubmitInput(nullptr), LUX_NOT_SUPPORTED);
}

TEST_F(RuntimeCapture, TerminateFreesTheScreenAndInitMayFollow) {
    for (int round = 0; round < 3; ++round) {
        screen.changed = true;
        Start();
        EXPECT_EQ(screen.open, 1);
        EXPECT_TRUE(Delivers());
        EXPECT_EQ(capture->Terminate(), LUX_OK);
        EXPECT_EQ(screen.open, 0);
        Ref<LUXData> data;
        EXPECT_EQ(capture->QueryOutput(data.Out()), LUX_WRONG_STATE);
    }
}

TEST_F(RuntimeCapture, APictureOutlivesTheCapture) {
    screen.shade = 77;
    Start();
    const auto data = luxtest::Query(*capture.Get());
    capture->Terminate();
    capture.Reset();
    EXPECT_EQ(luxtest::PixelsOf(*data.Get())[64 * 48 * 4 - 1], 77);
}

TEST(RuntimeTestPicture, ItsBarsMoveAndItsNumberCounts) {
    luxrt::TestPicture picture({320, 200});
    std::vector<std::vector<uint8_t>> frames;
    for (uint32_t frame = 0; frame < 12; ++frame) {
        EXPECT_TRUE(picture.Changed());
        const auto surface = picture.Take();
        ASSERT_TRUE(surface);
        const uint8_t* const pixels = luxrt::ViewPlane(*surface.Get(), 0).bytes;
        frames.emplace_back(pixels, pixels + 320 * 200 * 4);
        std::vector<uint8_t> expected(frames.back().size());
        luxrt::PaintTestPicture(expected.data(), {320, 200}, frame);
        EXPECT_EQ(frames.back(), expected) << frame;
    }
    // The last row has bars only; they have moved by 4 pixels to the left.
    const auto pixel = [&](size_t frame, size_t x) { return &frames.at(frame).at((199 * 320 + x) * 4); };
    EXPECT_EQ(std::memcmp(pixel(0, 4), pixel(1, 0), size_t{316} * 4), 0);
    EXPECT_NE(std::memcmp(pixel(0, 0), pixel(1, 0), size_t{320} * 4), 0);
    // Cells are 5 pixels: the number's field begins at 5,5 and its first digit at 10,10.
    const auto cell = [&](size_t frame, size_t x, size_t y) {
        return frames.at(frame).at(((y * 5 + 12) * 320 + x * 5 + 12) * 4) != 0;
    };
    const auto digit = [&](size_t frame) {
        std::string cells;
        for (size_t y = 0; y < 5; ++y) {
            for (size_t x = 0; x < 3; ++x) {
                cells += cell(frame, x, y) ? '#' : '.';
            }
        }
        return cells;
    };
    EXPECT_EQ(digit(0), "####.##.##.####");
    EXPECT_EQ(digit(1), ".#.##..#..#.###");
    EXPECT_EQ(digit(7), "###..#..#..#..#");
}

TEST(RuntimeTestPicture, TinySizesArePainted) {
    for (const LUXSize size : {LUXSize{1, 1}, LUXSize{3, 2}, LUXSize{17, 5}}) {
        std::vector<uint8_t> pixels(luxrt::Surface::Bytes(LUX_SURFACE_BGRA, size), 1);
        luxrt::PaintTestPicture(pixels.data(), size, UINT32_MAX);
        for (size_t alpha = 3; alpha < pixels.size(); alpha += 4) {
            EXPECT_EQ(pixels[alpha], 255);
        }
    }
}
