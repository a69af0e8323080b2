// A host's chunks of encoded frames, in any order and with any heads, as the display client joins them.
#include <cstring>
#include <vector>

#include "firmware/screen/FrameAssembler.h"
#include "fuzz/Input.h"

namespace {

constexpr size_t kLimit = 2u << 20;
constexpr size_t kLongestFault = 200;
constexpr size_t kMostSteps = 24;

std::vector<uint8_t> Chunk(uint32_t required, uint32_t chunkSize, uint32_t frameSize, size_t data) {
    std::vector<uint8_t> record(sizeof(EncodedFrameChunk) + data, uint8_t(required));
    const EncodedFrameChunk head{required, chunkSize, frameSize};
    std::memcpy(record.data(), &head, sizeof head);
    return record;
}

void Take(mpm::FrameAssembler& assembler, const std::vector<uint8_t>& record, bool mustBeRight = false) {
    const auto result = assembler.Take(record);
    fuzz::Require(result.fault.size() <= kLongestFault, "a fault is one short line", result.fault);
    fuzz::Require(!mustBeRight || result.fault.empty(), "a right chunk has no fault", result.fault);
    if (!result.complete) return;
    fuzz::Require(!assembler.InFrame(), "a complete frame has no more chunks");
    const std::vector<uint8_t> frame = assembler.TakeFrame();
    EncodedFrameChunk head{};
    std::memcpy(&head, record.data(), sizeof head);
    fuzz::Require(frame.size() == head.FrameSize && frame.size() <= kLimit,
                  "a frame has the size of its head");
    fuzz::Require(assembler.Chunks() == mpm::FrameAssembler::ChunksOf(head.FrameSize),
                  "a frame has all of its chunks");
}

// All chunks of a frame as a host sends them.
void TakeFrame(mpm::FrameAssembler& assembler, uint32_t size, bool mustBeRight) {
    uint32_t left = mpm::FrameAssembler::ChunksOf(size);
    for (uint32_t offset = 0; offset < size; offset += EncodedFrameChunk::kMaxData) {
        const uint32_t chunk = std::min<uint32_t>(size - offset, EncodedFrameChunk::kMaxData);
        Take(assembler, Chunk(left--, chunk, size, chunk), mustBeRight);
        if (mustBeRight)
            fuzz::Require(assembler.InFrame() == (left > 0), "a right frame is taken to its end");
    }
}

}  // namespace

FUZZ_TARGET(frames) {
    fuzz::Input from(input);
    mpm::FrameAssembler assembler(kLimit);
    for (size_t step = 0; step < kMostSteps && !from.AtEnd(); ++step) {
        switch (from.Byte() % 4) {
            case 0: {
                const uint32_t required = from.Number(), chunkSize = from.Number(), frameSize = from.Number();
                Take(assembler,
                     Chunk(required, chunkSize, frameSize, from.Number() % EncodedFrameChunk::kMaxData));
                break;
            }
            case 1: {
                const fuzz::Bytes bytes = from.Block();
                Take(assembler, {bytes.begin(), bytes.end()});
                break;
            }
            case 2:
                TakeFrame(assembler, from.Number() % kLimit + 1, false);
                break;
            default:
                assembler.Reset();
                fuzz::Require(!assembler.InFrame(), "nothing is left after a reset");
        }
    }
    // Whatever came before, at most one right frame goes down with it.
    TakeFrame(assembler, 3, false);
    TakeFrame(assembler, EncodedFrameChunk::kMaxData + 1, true);
}
