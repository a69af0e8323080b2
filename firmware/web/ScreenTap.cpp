#include "firmware/web/ScreenTap.h"

#include <libyuv/convert_from_argb.h>

#include <cstring>

namespace mpm::web {

void FrameQueue::Add(bool key, Message message) {
    m_bytes += message->size();
    m_frames.push_back({++m_lastSerial, key, std::move(message)});
    if (key) m_newestKey = m_lastSerial;
    while (m_bytes > kMaxBytes) {
        m_bytes -= m_frames.front().message->size();
        if (m_newestKey == First()) m_newestKey = 0;
        m_frames.pop_front();
    }
}

void FrameQueue::Clear() {
    m_frames.clear();
    m_bytes = 0;
    m_newestKey = 0;
    m_streamBegin = m_lastSerial + 1;
}

// Whether a page that has decoded this frame can decode the oldest one that it has not had.
bool FrameQueue::Follows(uint64_t cursor) const {
    return cursor >= m_streamBegin && !m_frames.empty() && cursor + 1 >= First();
}

FrameQueue::Message FrameQueue::Next(uint64_t& cursor) const {
    if (m_frames.empty() || cursor == m_lastSerial) return nullptr;
    const bool isLate = m_lastSerial - cursor > kMostBehind && m_newestKey > cursor;
    if (!Follows(cursor) || isLate) {
        if (m_newestKey <= cursor) return nullptr;
        cursor = m_newestKey;
    } else {
        ++cursor;
    }
    return m_frames[cursor - First()].message;
}

bool FrameQueue::NeedsKey(uint64_t cursor) const {
    return cursor < m_lastSerial && !Follows(cursor) && m_newestKey <= cursor;
}

void ScreenTap::BeginStream() {
    std::lock_guard lock(m_mutex);
    m_frames.Clear();
    m_newest.picture = nullptr;
}

void ScreenTap::TakeFrame(const Frame& frame) {
    FrameHead head{FrameHead::Kind::Av1, IsKeyFrame(frame.data), frame.width, frame.height, frame.number,
                   frame.asked,          frame.complete};
    std::string message = head.Message(frame.data.size());
    std::memcpy(message.data() + FrameHead::kSize, frame.data.data(), frame.data.size());
    {
        std::lock_guard lock(m_mutex);
        m_frames.Add(head.key, std::make_shared<const std::string>(std::move(message)));
        m_newest.head = head;
    }
    Wake();
}

void ScreenTap::TakePicture(std::shared_ptr<const Picture> picture) {
    {
        std::lock_guard lock(m_mutex);
        m_newest.picture = std::move(picture);
        ++m_newest.serial;
    }
    Wake();
}

void ScreenTap::Wake() {
    if (!m_watched) return;
    std::lock_guard lock(m_mutex);
    if (m_wake) m_wake();
}

void ScreenTap::Disconnect() {
    std::lock_guard lock(m_mutex);
    m_wake = nullptr;
}

FrameQueue::Message ScreenTap::Next(uint64_t& cursor) const {
    std::lock_guard lock(m_mutex);
    return m_frames.Next(cursor);
}

bool ScreenTap::NeedsKey(uint64_t cursor) const {
    std::lock_guard lock(m_mutex);
    return m_frames.NeedsKey(cursor);
}

ScreenTap::Shown ScreenTap::Newest() const {
    std::lock_guard lock(m_mutex);
    return m_newest;
}

std::string PictureMessage(const ScreenTap::Shown& shown) {
    const int width = shown.picture->Width(), height = shown.picture->Height();
    FrameHead head = shown.head;
    head.kind = FrameHead::Kind::Picture;
    head.key = true;
    head.width = uint32_t(width);
    head.height = uint32_t(height);
    const int stride = width * 4;
    std::string message = head.Message(size_t(stride) * size_t(height));
    auto* const pixels = reinterpret_cast<uint8_t*>(message.data() + FrameHead::kSize);
    shown.picture->ConvertTo(pixels, size_t(stride), {0, 0, width, height});
    libyuv::ARGBToABGR(pixels, stride, pixels, stride, width, height);
    return message;
}

}  // namespace mpm::web
