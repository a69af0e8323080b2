#include "firmware/screen/FrameAssembler.h"

#include <algorithm>
#include <cstring>

namespace mpm {

namespace {

std::string Count(uint64_t count, const char* what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

}  // namespace

uint32_t FrameAssembler::ChunksOf(uint32_t frameSize) {
    return frameSize == 0 ? kEmptyChunks : (frameSize - 1) / uint32_t(Head::kMaxData) + 1;
}

void FrameAssembler::Reset() {
    m_left = 0;
    m_skipping = false;
    m_frame = {};
}

FrameAssembler::Result FrameAssembler::Take(std::span<const uint8_t> record) {
    Head head{};
    if (record.size() < sizeof head)
        return Break(head, {}, "a chunk of " + Count(record.size(), "byte") + " has no head");
    std::memcpy(&head, record.data(), sizeof head);
    const Data data = record.subspan(sizeof head);
    return m_left > 0 ? Continue(head, data) : Begin(head, data);
}

std::string FrameAssembler::WrongSize(const Head& head, Data data) const {
    const size_t due = std::min<size_t>(m_frameSize - m_offset, Head::kMaxData);
    if (head.ChunkSize != due)
        return "a chunk of " + Count(head.ChunkSize, "byte") + " at offset " + std::to_string(m_offset) +
               " of a frame of " + std::to_string(m_frameSize) + ", where " + std::to_string(due) +
               " are due";
    if (data.size() != due)
        return "a chunk that names " + Count(due, "byte") + " has " + std::to_string(data.size());
    return {};
}

bool FrameAssembler::IsFirst(const Head& head, Data data) {
    return head.FrameSize > 0 && head.RequiredChunk == ChunksOf(head.FrameSize) &&
           head.ChunkSize == std::min<size_t>(head.FrameSize, Head::kMaxData) &&
           data.size() == head.ChunkSize;
}

FrameAssembler::Result FrameAssembler::Begin(const Head& head, Data data) {
    if (m_skipping && !IsFirst(head, data)) {
        m_skipping = head.RequiredChunk > 1;
        return {};
    }
    m_skipping = false;
    m_frame = {};
    m_frameSize = head.FrameSize;
    m_offset = 0;
    m_chunks = 1;
    if (const uint32_t due = ChunksOf(head.FrameSize); head.RequiredChunk != due)
        return Break(head, data,
                     "the first chunk of a frame of " + Count(head.FrameSize, "byte") +
                         " has RequiredChunk " + std::to_string(head.RequiredChunk) + " and not " +
                         std::to_string(due));
    if (const std::string wrong = WrongSize(head, data); !wrong.empty()) return Break(head, data, wrong);
    Result result;
    m_left = head.RequiredChunk - 1;
    m_stored = m_frameSize > 0 && m_frameSize <= m_maxFrame;
    result.captureFailed = m_frameSize == 0;
    if (m_frameSize > m_maxFrame)
        result.fault = "a frame of " + Count(m_frameSize, "byte") + " is larger than the limit of " +
                       std::to_string(m_maxFrame) + ", and is passed over";
    if (m_stored) m_frame.reserve(m_frameSize);
    Store(result, data);
    return result;
}

FrameAssembler::Result FrameAssembler::Continue(const Head& head, Data data) {
    if (head.FrameSize != m_frameSize)
        return Break(head, data,
                     "a chunk of a frame of " + Count(head.FrameSize, "byte") + " where " +
                         Count(m_left, "chunk") + " of a frame of " + std::to_string(m_frameSize) +
                         " are due");
    if (head.RequiredChunk != m_left)
        return Break(head, data,
                     "a chunk has RequiredChunk " + std::to_string(head.RequiredChunk) + " and not " +
                         std::to_string(m_left));
    if (const std::string wrong = WrongSize(head, data); !wrong.empty()) return Break(head, data, wrong);
    Result result;
    --m_left;
    ++m_chunks;
    Store(result, data);
    return result;
}

void FrameAssembler::Store(Result& result, Data data) {
    m_offset += uint32_t(data.size());
    if (!m_stored) return;
    m_frame.insert(m_frame.end(), data.begin(), data.end());
    result.complete = m_left == 0;
}

// Gives up the frame. A chunk that can begin a frame does so, because the host has gone on to the next.
FrameAssembler::Result FrameAssembler::Break(const Head& head, Data data, const std::string& why) {
    const bool begun = m_left > 0;
    Reset();
    Result result;
    if (begun && IsFirst(head, data))
        result = Begin(head, data);
    else
        m_skipping = head.RequiredChunk > 1;
    result.fault = why;
    return result;
}

}  // namespace mpm
