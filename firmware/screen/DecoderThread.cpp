#include "firmware/screen/DecoderThread.h"

#include <stdexcept>

namespace mpm {

DecoderThread::DecoderThread(std::function<void()> news) : m_news(std::move(news)) {
    m_thread = std::thread(&DecoderThread::Main, this);
}

DecoderThread::~DecoderThread() {
    {
        std::lock_guard lock(m_mutex);
        m_stopping = true;
    }
    m_changed.notify_one();
    m_thread.join();
}

void DecoderThread::Begin(const std::string& ivf, uint32_t width, uint32_t height) {
    std::lock_guard lock(m_mutex);
    m_jobs.clear();
    const uint64_t number = m_session.number + 1;
    m_session = {};
    m_session.ivf = ivf;
    m_session.width = width;
    m_session.height = height;
    m_session.number = number;
}

void DecoderThread::Push(std::vector<uint8_t> frame) {
    {
        std::lock_guard lock(m_mutex);
        m_jobs.push_back({std::move(frame), Clock::now(), m_session.number});
    }
    m_changed.notify_one();
}

size_t DecoderThread::Waiting() const {
    std::lock_guard lock(m_mutex);
    return m_jobs.size() + (m_busy ? 1 : 0);
}

std::shared_ptr<const Picture> DecoderThread::Newest() const {
    std::lock_guard lock(m_mutex);
    return m_session.picture;
}

std::vector<std::string> DecoderThread::CollectNotes() {
    std::lock_guard lock(m_mutex);
    return std::exchange(m_notes, {});
}

Json::Value DecoderThread::ToJson() const {
    std::lock_guard lock(m_mutex);
    Json::Value object;
    object["count"] = Json::Int64(m_session.decoded);
    object["failed"] = Json::Int64(m_session.failed);
    object["milliseconds"] = m_session.durations.ToJson();
    if (!m_session.fault.empty()) object["lastFault"] = m_session.fault;
    if (m_session.picture) {
        object["width"] = m_session.picture->Width();
        object["height"] = m_session.picture->Height();
    }
    if (!m_session.ivf.empty()) {
        object["ivf"] = m_session.ivf;
        object["saved"] = Json::Int64(m_session.saved);
    }
    return object;
}

void DecoderThread::Note(const std::string& text) {
    std::lock_guard lock(m_mutex);
    m_notes.push_back(text);
}

void DecoderThread::Main() {
    for (;;) {
        Job job;
        {
            std::unique_lock lock(m_mutex);
            m_changed.wait(lock, [this] { return m_stopping || !m_jobs.empty(); });
            if (m_stopping) return;
            job = std::move(m_jobs.front());
            m_jobs.pop_front();
            m_busy = true;
        }
        Work(std::move(job));
        {
            std::lock_guard lock(m_mutex);
            m_busy = false;
        }
        m_news();
    }
}

void DecoderThread::StartSession() {
    m_decoder.Reset();
    m_failing = false;
    m_frame = 0;
    m_ivf.reset();
    m_firstSaved.reset();
    Session session;
    {
        std::lock_guard lock(m_mutex);
        session = m_session;
    }
    m_working = session.number;
    if (session.ivf.empty()) return;
    try {
        m_ivf.emplace(session.ivf, session.width, session.height);
    } catch (const std::exception& error) {
        Note(error.what());
    }
}

void DecoderThread::Work(Job job) {
    if (job.session != m_working) StartSession();
    if (job.session != m_working) return;  // a newer one has begun meanwhile
    ++m_frame;
    Save(job);
    Decode(std::move(job));
}

void DecoderThread::Save(const Job& job) {
    if (!m_ivf) return;
    if (!m_firstSaved) m_firstSaved = job.arrived;
    try {
        m_ivf->Add(job.frame,
                   std::chrono::duration_cast<std::chrono::milliseconds>(job.arrived - *m_firstSaved));
        std::lock_guard lock(m_mutex);
        if (m_session.number == m_working) m_session.saved = m_ivf->Frames();
    } catch (const std::exception& error) {
        m_ivf.reset();
        Note(error.what());
    }
}

void DecoderThread::Decode(Job job) {
    const auto start = Clock::now();
    const size_t size = job.frame.size();
    std::shared_ptr<const Picture> picture;
    std::string fault;
    try {
        picture = m_decoder.Decode(std::move(job.frame));
    } catch (const std::exception& error) {
        fault =
            "frame " + std::to_string(m_frame) + " of " + std::to_string(size) + " bytes: " + error.what();
    }
    const auto took = Clock::now() - start;
    // Of several frames that fail in a row, the first is named.
    if (!fault.empty() && !m_failing) Note(fault);
    if (fault.empty() && m_failing) Note("frame " + std::to_string(m_frame) + " can be decoded again");
    m_failing = !fault.empty();
    std::lock_guard lock(m_mutex);
    if (m_session.number != m_working) return;
    if (fault.empty()) {
        ++m_session.decoded;
        m_session.durations.Add(took);
        m_session.picture = std::move(picture);
    } else {
        ++m_session.failed;
        m_session.fault = fault;
    }
}

}  // namespace mpm
