// Saves and decodes the frames of a session on a thread of its own.
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>

#include "firmware/screen/Av1Decoder.h"
#include "firmware/screen/FrameMeter.h"
#include "firmware/screen/IvfFile.h"

namespace mpm {

class DecoderThread {
  public:
    using Clock = std::chrono::steady_clock;

    // `news` is called on the thread whenever a frame has been worked on.
    explicit DecoderThread(std::function<void()> news);
    ~DecoderThread();  // frames that wait are dropped

    // Forgets the session before, the frames that wait included. Frames are saved in `ivf` unless it is
    // empty.
    void Begin(const std::string& ivf, uint32_t width, uint32_t height);
    void Push(std::vector<uint8_t> frame);
    // Frames that are not decoded yet.
    size_t Waiting() const;
    // The newest picture of the session; null before the first.
    std::shared_ptr<const Picture> Newest() const;
    // What went wrong since the last call.
    std::vector<std::string> CollectNotes();
    Json::Value ToJson() const;

  private:
    struct Job {
        std::vector<uint8_t> frame;
        Clock::time_point arrived;
        uint64_t session;
    };
    struct Session {
        std::string ivf;
        uint32_t width = 0, height = 0;
        uint64_t number = 0;
        uint64_t decoded = 0, failed = 0, saved = 0;
        std::string fault;
        Durations durations;
        std::shared_ptr<const Picture> picture;
    };

    void Main();
    void StartSession();
    void Work(Job job);
    void Save(const Job& job);
    void Decode(Job job);
    void Note(const std::string& text);

    const std::function<void()> m_news;
    // Of the thread alone.
    Av1Decoder m_decoder;
    std::optional<IvfFile> m_ivf;
    std::optional<Clock::time_point> m_firstSaved;
    uint64_t m_working = 0;  // the session that the decoder is in
    bool m_failing = false;
    uint64_t m_frame = 0;

    mutable std::mutex m_mutex;  // guards what follows
    std::condition_variable m_changed;
    std::deque<Job> m_jobs;
    bool m_busy = false, m_stopping = false;
    Session m_session;
    std::vector<std::string> m_notes;
    std::thread m_thread;
};

}  // namespace mpm
