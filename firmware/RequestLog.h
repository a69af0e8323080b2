// What the host asked, kept for tests and people. Written on the firmware's thread, read and awaited from
// any.
#pragma once

#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>

#include "firmware/Firmware.h"

namespace mpm {

class RequestLog {
  public:
    void Add(Request request, bool keep);
    std::vector<Request> All(const std::string* name = nullptr) const;
    size_t Count(const std::string& name) const;
    std::optional<Request> Await(const std::string& name, const std::function<bool(const Request&)>& matches,
                                 std::chrono::milliseconds patience) const;
    bool AwaitCount(const std::string& name, size_t count, std::chrono::milliseconds patience) const;
    void Clear();

  private:
    static constexpr size_t kMaxKept = 20000;
    static constexpr size_t kMaxKeptBytes = 64u << 20;

    mutable std::mutex m_mutex;
    mutable std::condition_variable m_added;
    std::deque<Request> m_kept;
    size_t m_keptBytes = 0;
    uint64_t m_firstSerial = 0;  // of m_kept's first: how many went before it
    std::map<std::string, size_t, std::less<>> m_counts;
};

}  // namespace mpm
