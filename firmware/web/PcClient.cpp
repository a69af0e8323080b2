#include "firmware/web/PcClient.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>

#include "testbed/Json.h"
#include "testbed/Sockets.h"

namespace mpm::web {

namespace {

Json::Value Failure(const std::string& why) {
    Json::Value answer;
    answer["ok"] = false;
    answer["error"] = why;
    return answer;
}

}  // namespace

PcClient::PcClient(std::string path)
    : m_path(std::move(path)), m_wake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!m_wake) throw std::system_error(errno, std::generic_category(), "eventfd");
    m_thread = std::thread(&PcClient::Main, this);
}

PcClient::~PcClient() {
    {
        std::lock_guard lock(m_mutex);
        m_stopping = true;
    }
    eventfd_write(m_wake.Get(), 1);
    m_thread.join();
}

bool PcClient::IsOn() const {
    // A PC whose queue of clients is full is on too.
    return testbed::ConnectUnix(m_path, SOCK_STREAM | SOCK_NONBLOCK) || errno == EAGAIN;
}

void PcClient::Ask(const Json::Value& request, std::chrono::milliseconds patience, Done done) {
    {
        std::lock_guard lock(m_mutex);
        if (m_waiting < kMostQuestions) {
            ++m_waiting;
            m_new.push_back({testbed::Compact(request) + "\n",
                             Clock::now() + patience,
                             std::exchange(done, {}),
                             {},
                             0,
                             {}});
        }
    }
    if (done) return done(Failure("the PC has too many questions to answer"));
    eventfd_write(m_wake.Get(), 1);
}

void PcClient::Main() {
    for (;;) {
        std::vector<pollfd> waits{{m_wake.Get(), POLLIN, 0}};
        for (const Question& question : m_asked)
            waits.push_back({question.socket.Get(),
                             short(question.sent < question.request.size() ? POLLOUT : POLLIN), 0});
        poll(waits.data(), waits.size(), WaitTime());
        eventfd_t count = 0;
        eventfd_read(m_wake.Get(), &count);
        {
            std::lock_guard lock(m_mutex);
            if (m_stopping) return;
            m_asked.splice(m_asked.end(), m_new);
        }
        const size_t answered =
            m_asked.remove_if([this](Question& question) { return Serve(question) == Progress::Answered; });
        std::lock_guard lock(m_mutex);
        m_waiting -= answered;
    }
}

int PcClient::WaitTime() const {
    if (m_asked.empty()) return -1;
    const auto first = std::min_element(m_asked.begin(), m_asked.end(),
                                        [](const auto& a, const auto& b) { return a.deadline < b.deadline; });
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(first->deadline - Clock::now());
    return int(std::clamp<int64_t>(left.count(), 0, 60'000));
}

PcClient::Progress PcClient::Fail(Question& question, const std::string& why) {
    question.done(Failure(why));
    return Progress::Answered;
}

PcClient::Progress PcClient::Serve(Question& question) {
    if (!question.socket) {
        question.socket = testbed::ConnectUnix(m_path, SOCK_STREAM | SOCK_NONBLOCK);
        if (!question.socket) return Fail(question, "the PC is off: " + std::string(std::strerror(errno)));
    }
    while (question.sent < question.request.size()) {
        const ssize_t count = send(question.socket.Get(), question.request.data() + question.sent,
                                   question.request.size() - question.sent, MSG_NOSIGNAL);
        if (count < 0 && errno != EAGAIN) return Fail(question, "the PC has gone without an answer");
        if (count < 0) break;
        question.sent += size_t(count);
    }
    char block[65536];
    for (ssize_t count; (count = recv(question.socket.Get(), block, sizeof block, 0)) != -1;) {
        if (count == 0) return Fail(question, "the PC has gone without an answer");
        question.answer.append(block, size_t(count));
        if (question.answer.size() > kLongestAnswer) return Fail(question, "the PC's answer is too long");
        if (const size_t end = question.answer.find('\n'); end != std::string::npos) {
            Json::Value answer;
            try {
                answer = testbed::ParseObject(question.answer.substr(0, end));
            } catch (const std::exception& error) {
                answer = Failure(error.what());
            }
            question.done(std::move(answer));
            return Progress::Answered;
        }
    }
    if (Clock::now() >= question.deadline) return Fail(question, "the PC does not answer");
    return Progress::Waits;
}

}  // namespace mpm::web
