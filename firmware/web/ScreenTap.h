// Keeps the newest frames and the newest picture of the host's screen for pages that watch it.
#pragma once

#include <atomic>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>

#include "firmware/screen/ScreenObserver.h"
#include "firmware/web/FrameMessage.h"

namespace mpm::web {

// Encoded frames, each of which builds on those before it up to a key frame. A page reads them with a cursor:
// the serial number of its last one, 0 before the first.
class FrameQueue {
  public:
    using Message = std::shared_ptr<const std::string>;
    static constexpr size_t kMaxBytes = 8u << 20;
    // A page that is so many frames behind goes on with the newest key frame, if there is one.
    static constexpr uint64_t kMostBehind = 30;

    void Add(bool key, Message message);
    // Those that follow do not build on those before.
    void Clear();
    // The next frame for a page; null when it has all, or has to wait for a key frame.
    Message Next(uint64_t& cursor) const;
    // Whether the page, which has had all that it can decode, waits for a key frame.
    bool NeedsKey(uint64_t cursor) const;

  private:
    struct Frame {
        uint64_t serial;
        bool key;
        Message message;
    };
    uint64_t First() const { return m_frames.front().serial; }
    bool Follows(uint64_t cursor) const;

    std::deque<Frame> m_frames;
    size_t m_bytes = 0;
    uint64_t m_lastSerial = 0;
    uint64_t m_newestKey = 0;  // 0: not kept
    uint64_t m_streamBegin = 1;
};

class ScreenTap : public ScreenObserver {
  public:
    struct Shown {
        FrameHead head;
        std::shared_ptr<const Picture> picture;
        uint64_t serial = 0;  // 0: there is none
    };

    // `wake` is called on the firmware's thread for each frame and picture while the screen is watched.
    explicit ScreenTap(std::function<void()> wake) : m_wake(std::move(wake)) {}

    void BeginStream() override;
    void TakeFrame(const Frame& frame) override;
    void TakePicture(std::shared_ptr<const Picture> picture) override;

    void SetWatched(bool watched) { m_watched = watched; }
    FrameQueue::Message Next(uint64_t& cursor) const;
    bool NeedsKey(uint64_t cursor) const;
    Shown Newest() const;
    // No call of `wake` begins afterwards.
    void Disconnect();

  private:
    void Wake();

    std::atomic<bool> m_watched = false;
    mutable std::mutex m_mutex;  // guards what follows
    std::function<void()> m_wake;
    FrameQueue m_frames;
    Shown m_newest;
};

// The picture as a message: rows of red, green, blue and 255.
std::string PictureMessage(const ScreenTap::Shown& shown);

}  // namespace mpm::web
