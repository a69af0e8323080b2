// Checks the chunks of encoded frames against the rules that a host keeps, and joins them into frames.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "mailbox/DisplayRecords.h"

namespace mpm {

class FrameAssembler {
  public:
    // A host whose capture has failed answers this many requests with empty chunks.
    static constexpr uint32_t kEmptyChunks = 8192;

    struct Result {
        bool complete = false;       // TakeFrame has a frame
        bool captureFailed = false;  // the first of kEmptyChunks empty chunks
        std::string fault;           // what is wrong; said once for each frame
    };

    // Frames of more bytes than `maxFrame` are passed over.
    explicit FrameAssembler(size_t maxFrame) : m_maxFrame(maxFrame) {}

    // One record of WriteEncodedBuffer: a head and its data.
    Result Take(std::span<const uint8_t> record);
    // The frame that the last Take completed.
    std::vector<uint8_t> TakeFrame() { return std::move(m_frame); }
    // More chunks of the same frame, or of the same failed capture, are to come.
    bool InFrame() const { return m_left > 0; }
    // Chunks of the frame so far.
    uint32_t Chunks() const { return m_chunks; }
    void Reset();
    void LimitFrames(size_t maxFrame) { m_maxFrame = maxFrame; }

    // The chunks that a frame of this size needs.
    static uint32_t ChunksOf(uint32_t frameSize);

  private:
    using Head = EncodedFrameChunk;
    using Data = std::span<const uint8_t>;
    Result Begin(const Head& head, Data data);
    Result Continue(const Head& head, Data data);
    Result Break(const Head& head, Data data, const std::string& why);
    std::string WrongSize(const Head& head, Data data) const;
    static bool IsFirst(const Head& head, Data data);
    void Store(Result& result, Data data);

    size_t m_maxFrame;
    std::vector<uint8_t> m_frame;
    uint32_t m_frameSize = 0;
    uint32_t m_offset = 0;
    uint32_t m_left = 0;  // chunks to come; 0 between frames
    uint32_t m_chunks = 0;
    bool m_stored = false;    // this frame is joined, and not passed over
    bool m_skipping = false;  // after a fault: until the broken frame is over
};

}  // namespace mpm
