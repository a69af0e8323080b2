#include "firmware/screen/FrameMeter.h"

#include <algorithm>
#include <cmath>

namespace mpm {

namespace {

double Rounded(double value) {
    return std::round(value * 1000) / 1000;
}

double Seconds(FrameMeter::Clock::duration duration) {
    return std::chrono::duration<double>(duration).count();
}

}  // namespace

void Durations::Add(std::chrono::steady_clock::duration duration) {
    const auto milliseconds = float(Seconds(duration) * 1000);
    if (m_milliseconds.size() < kKept)
        m_milliseconds.push_back(milliseconds);
    else
        m_milliseconds[m_next++ % kKept] = milliseconds;
}

Json::Value Durations::ToJson() const {
    Json::Value object(Json::objectValue);
    if (m_milliseconds.empty()) return object;
    std::vector<float> sorted = m_milliseconds;
    std::sort(sorted.begin(), sorted.end());
    // The smallest that at least this share does not exceed.
    const auto at = [&](double share) {
        return Rounded(double(sorted[size_t(std::ceil(share * double(sorted.size()))) - 1]));
    };
    object["median"] = at(0.5);
    object["p95"] = at(0.95);
    object["max"] = at(1);
    return object;
}

void FrameMeter::Add(Clock::time_point asked, Clock::time_point complete, size_t bytes, uint32_t chunks) {
    if (m_frames++ == 0) m_firstAsked = asked;
    m_lastAsked = asked;
    m_bytes += bytes;
    m_chunks += chunks;
    m_last = bytes;
    m_largest = std::max(m_largest, bytes);
    m_durations.Add(complete - asked);
}

Json::Value FrameMeter::ToJson() const {
    Json::Value object;
    object["count"] = Json::Int64(m_frames);
    object["bytes"] = Json::Int64(m_bytes);
    object["chunks"] = Json::Int64(m_chunks);
    object["lastBytes"] = Json::Int64(m_last);
    object["largestBytes"] = Json::Int64(m_largest);
    object["averageBytes"] = Json::Int64(m_frames ? m_bytes / m_frames : 0);
    const double seconds = Seconds(m_lastAsked - m_firstAsked);
    object["seconds"] = Rounded(seconds);
    object["perSecond"] = seconds > 0 ? Rounded(double(m_frames - 1) / seconds) : 0.0;
    object["milliseconds"] = m_durations.ToJson();
    return object;
}

}  // namespace mpm
