#include "testbed/SharedRing.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include <memory>
#include <vector>

namespace {

using testbed::SharedRing;

class SharedRingTest : public testing::Test {
  protected:
    std::optional<SharedRing::Position> Put(size_t size, uint8_t value = 0) {
        return m_ring->Put(std::vector<uint8_t>(size, value));
    }
    // The bytes are there, and all of them have this value.
    void ExpectAndRelease(SharedRing::Position begin, uint32_t size, uint8_t value) {
        const auto bytes = m_ring->Get(begin, size);
        ASSERT_EQ(bytes.size(), size);
        EXPECT_TRUE(std::ranges::all_of(bytes, [&](uint8_t byte) { return byte == value; })) << int(value);
        m_ring->Release(begin, size);
    }

    const std::unique_ptr<SharedRing> m_ring = std::make_unique<SharedRing>();
};

TEST_F(SharedRingTest, JoinsTwoParts) {
    const std::vector<uint8_t> first{1, 2, 3}, second{4, 5};
    const auto begin = m_ring->Put(first, second);
    ASSERT_TRUE(begin);
    const auto bytes = m_ring->Get(*begin, 5);
    EXPECT_EQ(std::vector<uint8_t>(bytes.begin(), bytes.end()), (std::vector<uint8_t>{1, 2, 3, 4, 5}));
}

TEST_F(SharedRingTest, HasNoRoomUntilSomethingIsReleased) {
    constexpr uint32_t kHalf = SharedRing::kSize / 2;
    const auto first = Put(kHalf, 1), second = Put(kHalf, 2);
    ASSERT_TRUE(first && second);
    EXPECT_FALSE(Put(1));
    ExpectAndRelease(*first, kHalf, 1);
    const auto third = Put(kHalf, 3);
    ASSERT_TRUE(third);
    EXPECT_FALSE(Put(1));
    ExpectAndRelease(*second, kHalf, 2);
    ExpectAndRelease(*third, kHalf, 3);
}

TEST_F(SharedRingTest, HoldsAsMuchAsItsSizeAndNoMore) {
    m_ring->Release(*Put(1000), 1000);
    EXPECT_FALSE(Put(SharedRing::kSize + 1));
    EXPECT_TRUE(Put(SharedRing::kSize));
}

// As often as it takes for positions to exceed 32 bits.
TEST_F(SharedRingTest, GoesOnBehindItsEnd) {
    constexpr uint32_t kSize = SharedRing::kSize / 3;
    std::vector<uint8_t> bytes(kSize);
    auto last = m_ring->Put(bytes);
    for (uint32_t i = 1; i < 7000; ++i) {
        std::memcpy(bytes.data() + kSize - sizeof i, &i, sizeof i);
        const auto next = m_ring->Put(bytes);
        ASSERT_TRUE(next) << i;
        m_ring->Release(*last, kSize);
        uint32_t number = 0;
        std::memcpy(&number, m_ring->Get(*next, kSize).last(sizeof i).data(), sizeof i);
        ASSERT_EQ(number, i);
        last = next;
    }
}

TEST_F(SharedRingTest, AnEmptyRingUsesTheSameBytesAgain) {
    const auto first = Put(1000);
    m_ring->Release(*first, 1000);
    EXPECT_EQ(Put(1000), first);
}

TEST_F(SharedRingTest, HasTheRoomAgainOfWhatTheProducerTakesBack) {
    const auto first = Put(1000), second = Put(SharedRing::kSize - 1000);
    ASSERT_TRUE(first && second);
    m_ring->TakeBack(*second);
    EXPECT_EQ(Put(2000), second);
    m_ring->TakeBack(*second);
    m_ring->TakeBack(*first);
    EXPECT_TRUE(Put(SharedRing::kSize));
}

TEST_F(SharedRingTest, GivesNothingOutsideOfTheRing) {
    EXPECT_TRUE(m_ring->Get(SharedRing::kSize - 10, 11).empty());
    EXPECT_TRUE(m_ring->Get(0, SharedRing::kSize + 1).empty());
    EXPECT_TRUE(m_ring->Get(UINT32_MAX, UINT32_MAX).empty());
    EXPECT_EQ(m_ring->Get(SharedRing::kSize - 10, 10).size(), 10u);
}

}  // namespace
