// The chunks of encoded frames: how they are joined, and what is found wrong with them.
#include "firmware/screen/FrameAssembler.h"

#include <gtest/gtest.h>

#include <cstring>
#include <ostream>

namespace mpm::test {
namespace {

constexpr uint32_t kFull = EncodedFrameChunk::kMaxData;
constexpr size_t kLimit = 32u << 20;

std::vector<uint8_t> Chunk(uint32_t required, uint32_t chunkSize, uint32_t frameSize, size_t data) {
    std::vector<uint8_t> record(sizeof(EncodedFrameChunk) + data);
    const EncodedFrameChunk head{required, chunkSize, frameSize};
    std::memcpy(record.data(), &head, sizeof head);
    for (size_t i = 0; i < data; ++i)
        record[sizeof head + i] = uint8_t(i % 251 + required);
    return record;
}

std::vector<uint8_t> Chunk(uint32_t required, uint32_t chunkSize, uint32_t frameSize) {
    return Chunk(required, chunkSize, frameSize, chunkSize);
}

// The chunks of a frame as a host sends them.
std::vector<std::vector<uint8_t>> Chunks(uint32_t frameSize) {
    std::vector<std::vector<uint8_t>> chunks;
    uint32_t left = FrameAssembler::ChunksOf(frameSize);
    for (uint32_t offset = 0; offset < frameSize; offset += kFull)
        chunks.push_back(Chunk(left--, std::min(frameSize - offset, kFull), frameSize));
    return chunks;
}

std::vector<uint8_t> Joined(const std::vector<std::vector<uint8_t>>& chunks) {
    std::vector<uint8_t> frame;
    for (const auto& chunk : chunks)
        frame.insert(frame.end(), chunk.begin() + sizeof(EncodedFrameChunk), chunk.end());
    return frame;
}

// Whether the assembler joins a correct frame of this size.
void ExpectAFrame(FrameAssembler& assembler, uint32_t frameSize) {
    const auto chunks = Chunks(frameSize);
    for (size_t i = 0; i < chunks.size(); ++i) {
        const auto result = assembler.Take(chunks[i]);
        EXPECT_EQ(result.fault, "") << i;
        EXPECT_EQ(result.complete, i + 1 == chunks.size()) << i;
        EXPECT_EQ(assembler.InFrame(), i + 1 < chunks.size()) << i;
        EXPECT_FALSE(result.captureFailed);
    }
    EXPECT_EQ(assembler.Chunks(), chunks.size());
    EXPECT_TRUE(assembler.TakeFrame() == Joined(chunks)) << frameSize;
}

class FrameAssemblerTest : public testing::Test {
  protected:
    FrameAssembler m_assembler{kLimit};
};

TEST_F(FrameAssemblerTest, JoinsFramesOfAllSizes) {
    for (const uint32_t size :
         {1u, 100u, kFull - 1, kFull, kFull + 1, 2 * kFull, 3 * kFull + 17, 20'000'000u})
        ExpectAFrame(m_assembler, size);
}

TEST_F(FrameAssemblerTest, CountsTheChunksOfAFrame) {
    EXPECT_EQ(FrameAssembler::ChunksOf(1), 1u);
    EXPECT_EQ(FrameAssembler::ChunksOf(kFull), 1u);
    EXPECT_EQ(FrameAssembler::ChunksOf(kFull + 1), 2u);
    EXPECT_EQ(FrameAssembler::ChunksOf(0), 8192u);
    EXPECT_EQ(FrameAssembler::ChunksOf(UINT32_MAX), 8192u);
}

TEST_F(FrameAssemblerTest, ReportsAFailedCaptureOnce) {
    for (uint32_t left = 8192; left > 0; --left) {
        const auto result = m_assembler.Take(Chunk(left, 0, 0));
        ASSERT_EQ(result.captureFailed, left == 8192) << left;
        ASSERT_EQ(result.fault, "") << left;
        ASSERT_FALSE(result.complete) << left;
        ASSERT_EQ(m_assembler.InFrame(), left > 1) << left;
    }
    ExpectAFrame(m_assembler, 1000);
}

TEST_F(FrameAssemblerTest, NamesAnEmptyChunkThatIsNoFailedCapture) {
    EXPECT_EQ(m_assembler.Take(Chunk(1, 0, 0)).fault,
              "the first chunk of a frame of 0 bytes has RequiredChunk 1 and not 8192");
    ExpectAFrame(m_assembler, 1000);
}

TEST_F(FrameAssemblerTest, PassesOverAFrameThatIsTooLarge) {
    FrameAssembler small(2 * kFull);
    const auto chunks = Chunks(2 * kFull + 1);
    EXPECT_EQ(small.Take(chunks[0]).fault,
              "a frame of 1048577 bytes is larger than the limit of 1048576, and is passed over");
    for (size_t i = 1; i < chunks.size(); ++i) {
        const auto result = small.Take(chunks[i]);
        EXPECT_EQ(result.fault, "");
        EXPECT_FALSE(result.complete);
    }
    ExpectAFrame(small, 2 * kFull);
}

TEST_F(FrameAssemblerTest, BeginsAnewAfterAReset) {
    m_assembler.Take(Chunk(2, kFull, kFull + 1));
    m_assembler.Reset();
    EXPECT_FALSE(m_assembler.InFrame());
    ExpectAFrame(m_assembler, kFull + 1);
}

struct BadFirst {
    const char* name;
    std::vector<uint8_t> record;
    std::string fault;
};

void PrintTo(const BadFirst& bad, std::ostream* out) {
    *out << bad.name;
}

class FirstChunk : public testing::TestWithParam<BadFirst> {};

TEST_P(FirstChunk, IsRefusedWithItsReasonAndTheNextFrameIsTaken) {
    FrameAssembler assembler(kLimit);
    const auto result = assembler.Take(GetParam().record);
    EXPECT_EQ(result.fault, GetParam().fault);
    EXPECT_FALSE(result.complete);
    EXPECT_FALSE(result.captureFailed);
    EXPECT_FALSE(assembler.InFrame());
    ExpectAFrame(assembler, 2 * kFull + 1);
}

INSTANTIATE_TEST_SUITE_P(
    FrameAssembler, FirstChunk,
    testing::Values(
        BadFirst{"NoBytes", {}, "a chunk of 0 bytes has no head"},
        BadFirst{"HalfAHead", std::vector<uint8_t>(11), "a chunk of 11 bytes has no head"},
        BadFirst{"ZeroRequired", Chunk(0, 5, 5),
                 "the first chunk of a frame of 5 bytes has RequiredChunk 0 and not 1"},
        BadFirst{"TooManyRequired", Chunk(2, kFull, kFull),
                 "the first chunk of a frame of 524288 bytes has RequiredChunk 2 and not 1"},
        BadFirst{"TooFewRequired", Chunk(1, kFull, kFull + 1),
                 "the first chunk of a frame of 524289 bytes has RequiredChunk 1 and not 2"},
        BadFirst{"ShortChunk", Chunk(1, 4, 5),
                 "a chunk of 4 bytes at offset 0 of a frame of 5, where 5 are due"},
        BadFirst{"LongChunk", Chunk(1, 6, 5),
                 "a chunk of 6 bytes at offset 0 of a frame of 5, where 5 are due"},
        BadFirst{"NotAFullChunk", Chunk(2, kFull - 1, kFull + 1),
                 "a chunk of 524287 bytes at offset 0 of a frame of 524289, where 524288 are due"},
        BadFirst{"DataMissing", Chunk(1, 5, 5, 4), "a chunk that names 5 bytes has 4"},
        BadFirst{"DataTooLong", Chunk(1, 5, 5, 6), "a chunk that names 5 bytes has 6"},
        BadFirst{"HugeFrameSize", Chunk(1, 5, UINT32_MAX),
                 "the first chunk of a frame of 4294967295 bytes has RequiredChunk 1 and not 8192"}),
    [](const auto& info) { return info.param.name; });

struct BadNext {
    const char* name;
    std::vector<uint8_t> record;  // after the first chunk of a frame of 2 * kFull + 1 bytes
    std::string fault;
};

void PrintTo(const BadNext& bad, std::ostream* out) {
    *out << bad.name;
}

class NextChunk : public testing::TestWithParam<BadNext> {};

TEST_P(NextChunk, EndsTheFrameWithItsReason) {
    FrameAssembler assembler(kLimit);
    const auto chunks = Chunks(2 * kFull + 1);
    EXPECT_EQ(assembler.Take(chunks[0]).fault, "");
    EXPECT_EQ(assembler.Take(GetParam().record).fault, GetParam().fault);
    EXPECT_FALSE(assembler.InFrame());
    // What is left of the broken frame is passed over without a further line.
    for (size_t i = 1; i < chunks.size() && GetParam().record.size() > 12 && GetParam().record[0] > 1; ++i) {
        const auto result = assembler.Take(chunks[i]);
        EXPECT_EQ(result.fault, "") << i;
        EXPECT_FALSE(result.complete) << i;
    }
    ExpectAFrame(assembler, kFull + 1);
}

INSTANTIATE_TEST_SUITE_P(
    FrameAssembler, NextChunk,
    testing::Values(
        BadNext{"NoBytes", {}, "a chunk of 0 bytes has no head"},
        BadNext{"OfAnotherFrame", Chunk(3, kFull, 2 * kFull),
                "a chunk of a frame of 1048576 bytes where 2 chunks of "
                "a frame of 1048577 are due"},
        BadNext{"Skipped", Chunk(1, 1, 2 * kFull + 1), "a chunk has RequiredChunk 1 and not 2"},
        BadNext{"ShortChunk", Chunk(2, kFull - 1, 2 * kFull + 1),
                "a chunk of 524287 bytes at offset 524288 of a frame of 1048577, where 524288 are due"},
        BadNext{"EmptyChunk", Chunk(2, 0, 2 * kFull + 1),
                "a chunk of 0 bytes at offset 524288 of a frame of 1048577, where 524288 are due"},
        BadNext{"DataMissing", Chunk(2, kFull, 2 * kFull + 1, kFull - 1),
                "a chunk that names 524288 bytes has 524287"}),
    [](const auto& info) { return info.param.name; });

TEST_F(FrameAssemblerTest, GoesOnWithAFrameThatBeginsTooEarly) {
    m_assembler.Take(Chunk(2, kFull, kFull + 1));
    const auto early = Chunk(1, 7, 7);
    const auto result = m_assembler.Take(early);
    EXPECT_EQ(result.fault, "a chunk of a frame of 7 bytes where 1 chunk of a frame of 524289 are due");
    EXPECT_TRUE(result.complete);
    EXPECT_TRUE(m_assembler.TakeFrame() == Joined({early}));
    ExpectAFrame(m_assembler, 100);
}

TEST_F(FrameAssemblerTest, NamesAFailedCaptureInMidFrame) {
    m_assembler.Take(Chunk(2, kFull, kFull + 1));
    EXPECT_NE(m_assembler.Take(Chunk(8192, 0, 0)).fault, "");
}

}  // namespace
}  // namespace mpm::test
