// The memory that a capture program on the user's desktop writes to.
#include <gtest/gtest.h>

#include <new>
#include <vector>

#include "runtime/software/SharedPicture.h"

using namespace lux;

namespace {

constexpr size_t kRoom = 20 * 10 * 4;

class RuntimeSharedPicture : public testing::Test {
  protected:
    // With nothing behind the room, so that a sanitizer sees each byte too many.
    std::unique_ptr<uint64_t[]> memory = std::make_unique<uint64_t[]>(luxrt::SharedBytes(kRoom) / 8);
    luxrt::SharedPicture reader{memory.get(), kRoom};
    luxrt::SharedPictureWriter writer{memory.get()};

    luxrt::SharedPicture::Answer AnswerWith(uint32_t state, LUXSize size) {
        reader.Request();
        writer.Answer(writer.Request(), static_cast<luxrt::ScreenState>(state), size);
        EXPECT_TRUE(reader.Answered());
        return reader.Read();
    }
};

constexpr auto kUnchanged = static_cast<uint32_t>(luxrt::ScreenState::Unchanged);
constexpr auto kChanged = static_cast<uint32_t>(luxrt::ScreenState::Changed);
constexpr auto kTooLarge = static_cast<uint32_t>(luxrt::ScreenState::TooLarge);

}  // namespace

TEST_F(RuntimeSharedPicture, APictureArrivesAsItWasStored) {
    EXPECT_EQ(writer.Capacity(), kRoom);
    std::vector<uint8_t> painted(kRoom);
    for (size_t index = 0; index < painted.size(); ++index) {
        painted[index] = static_cast<uint8_t>(index * 7);
    }
    reader.Request();
    EXPECT_FALSE(reader.Answered());
    EXPECT_TRUE(writer.Store(painted.data(), {20, 10}));
    writer.Answer(writer.Request(), luxrt::ScreenState::Changed, {20, 10});
    ASSERT_TRUE(reader.Answered());
    const auto answer = reader.Read();
    EXPECT_EQ(answer.state, luxrt::ScreenState::Changed);
    ASSERT_EQ(answer.size, (LUXSize{20, 10}));
    std::vector<uint8_t> shown(kRoom);
    reader.Copy(shown.data(), answer.size);
    EXPECT_EQ(shown, painted);
}

TEST_F(RuntimeSharedPicture, OnlyADifferentPictureIsAChange) {
    std::vector<uint8_t> painted(kRoom, 5);
    EXPECT_TRUE(writer.Store(painted.data(), {20, 10}));
    EXPECT_FALSE(writer.Store(painted.data(), {20, 10}));
    painted.back() = 6;
    EXPECT_TRUE(writer.Store(painted.data(), {20, 10}));
    EXPECT_FALSE(writer.Store(painted.data(), {20, 10}));
    painted.front() = 6;
    EXPECT_TRUE(writer.Store(painted.data(), {20, 10}));
    EXPECT_EQ(std::memcmp(writer.Pixels(), painted.data(), kRoom), 0);
    // The same bytes in another shape are another picture.
    EXPECT_TRUE(writer.Store(painted.data(), {10, 20}));
}

TEST_F(RuntimeSharedPicture, AnAnswerToAnEarlierRequestIsNone) {
    EXPECT_EQ(AnswerWith(kUnchanged, {}).state, luxrt::ScreenState::Unchanged);
    reader.Request();
    EXPECT_FALSE(reader.Answered());
    writer.Answer(writer.Request() - 1, luxrt::ScreenState::Changed, {20, 10});
    EXPECT_FALSE(reader.Answered());
    writer.Answer(writer.Request() + 1, luxrt::ScreenState::Changed, {20, 10});
    EXPECT_FALSE(reader.Answered());
}

TEST_F(RuntimeSharedPicture, ASizeThatDoesNotFitIsRefused) {
    for (const LUXSize size : {LUXSize{20, 11}, LUXSize{21, 10}, LUXSize{0, 0}, LUXSize{-1, -1},
                               LUXSize{-20, 10}, LUXSize{INT32_MAX, INT32_MAX}, LUXSize{INT32_MIN, INT32_MIN},
                               LUXSize{65536, 65536}, LUXSize{1, INT32_MAX}}) {
        EXPECT_EQ(AnswerWith(kChanged, size).state, luxrt::ScreenState::Blocked)
            << size.width << "x" << size.height;
    }
    for (const LUXSize size : {LUXSize{20, 10}, LUXSize{200, 1}, LUXSize{1, 200}}) {
        EXPECT_EQ(AnswerWith(kChanged, size).state, luxrt::ScreenState::Changed) << size.width;
    }
}

TEST_F(RuntimeSharedPicture, OnlyAPictureWithoutRoomIsTooLarge) {
    EXPECT_EQ(AnswerWith(kTooLarge, {21, 10}).state, luxrt::ScreenState::TooLarge);
    EXPECT_EQ(AnswerWith(kTooLarge, {16384, 16384}).state, luxrt::ScreenState::TooLarge);
    EXPECT_EQ(AnswerWith(kTooLarge, {20, 10}).state, luxrt::ScreenState::Blocked);
    EXPECT_EQ(AnswerWith(kTooLarge, {16385, 16384}).state, luxrt::ScreenState::Blocked);
}

TEST_F(RuntimeSharedPicture, AnUnknownStateIsABlockedScreen) {
    for (const uint32_t state : {0u, 4u, 5u, UINT32_MAX}) {
        EXPECT_EQ(AnswerWith(state, {20, 10}).state, luxrt::ScreenState::Blocked) << state;
    }
}

TEST_F(RuntimeSharedPicture, TheProgramCannotChangeTheRoom) {
    const uint64_t much = UINT64_MAX;
    std::memcpy(memory.get(), &much, sizeof much);
    EXPECT_EQ(AnswerWith(kChanged, {20, 11}).state, luxrt::ScreenState::Blocked);
}
