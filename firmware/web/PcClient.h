// Asks the control socket of the simulated PC, several questions at a time, on a thread of its own, so that a
// PC that does not answer blocks nothing else.
#pragma once

#include <json/json.h>

#include <chrono>
#include <functional>
#include <list>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "testbed/Descriptor.h"

namespace mpm::web {

class PcClient {
  public:
    // Gets {"ok": true, "result": ...} or {"ok": false, "error": "a sentence"}, on the client's thread.
    using Done = std::function<void(Json::Value answer)>;
    static constexpr size_t kMostQuestions = 32;
    static constexpr size_t kLongestAnswer = 4u << 20;

    explicit PcClient(std::string path);  // throws std::system_error
    ~PcClient();                          // questions that wait get no answer

    // Whether a PC listens there.
    bool IsOn() const;
    void Ask(const Json::Value& request, std::chrono::milliseconds patience, Done done);

  private:
    using Clock = std::chrono::steady_clock;
    struct Question {
        std::string request;
        Clock::time_point deadline;
        Done done;
        testbed::Descriptor socket;
        size_t sent = 0;
        std::string answer;
    };
    enum class Progress { Waits, Answered };

    void Main();
    int WaitTime() const;
    Progress Serve(Question& question);
    static Progress Fail(Question& question, const std::string& why);

    const std::string m_path;
    testbed::Descriptor m_wake;   // an eventfd
    std::list<Question> m_asked;  // of the thread alone
    std::mutex m_mutex;           // guards what follows
    std::list<Question> m_new;
    size_t m_waiting = 0;
    bool m_stopping = false;
    std::thread m_thread;
};

}  // namespace mpm::web
