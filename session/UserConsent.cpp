#include "session/UserConsent.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <system_error>
#include <thread>

#include "base/Log.h"
#include "base/SteadyTime.h"
#include "mailbox/FirmwareLevels.h"
#include "session/DesktopLock.h"
#include "state/ServiceState.h"

namespace {

constexpr uint32_t kMaxTimeout = 90;  // seconds
constexpr uint64_t kNanosecondsPerSecond = 1'000'000'000;
constexpr DWORD kPoll = 3000;  // milliseconds
constexpr DWORD kCancelPoll = 10;
constexpr const char* kGreeting = "yes";

// Returns 0 for a text that is not an answer.
uint32_t ConsentOf(const std::string& text) {
    if (text == "Consent_yes") return kConsentGiven;
    // A user who does not answer counts as refusing.
    if (text == "Consent_no" || text == "Consent_noreponce") return kConsentRefused;
    return 0;
}

}  // namespace

void UserConsent::Ask(const void* payload, size_t length) {
    std::lock_guard lock(m_mutex);
    std::memcpy(&m_question, payload, std::min(length, sizeof m_question));
    g_pServiceState->m_detachedThreads.Start([this, number = ++m_number, question = m_question] {
        Request request(number, question);
        Serve(request);
    });
}

void UserConsent::Serve(Request& request) {
    {
        std::lock_guard lock(m_mutex);
        m_requests.push_back(&request);
    }
    GiveUpEarlierThan(request);
    CheckUserConsentThread(request);
    std::lock_guard lock(m_mutex);
    std::erase(m_requests, &request);
}

// Closes the pipes of all earlier questions, so that no program can connect to one that this question has
// replaced.
void UserConsent::GiveUpEarlierThan(Request& request) {
    // An earlier request may be about to block, so it is cancelled repeatedly.
    while (CancelEarlierThan(request))
        Sleep(kCancelPoll);
    if (request.number != m_number) request.pipe.Cancel();
}

// Returns true while an earlier request still has an open pipe.
bool UserConsent::CancelEarlierThan(const Request& request) {
    std::lock_guard lock(m_mutex);
    bool open = false;
    for (Request* const other : m_requests) {
        // A request that has its answer accepts no client any more, and its answer is still sent.
        if (other->number >= request.number || other->m_bDone) continue;
        other->pipe.Cancel();
        open |= other->pipe.IsOpen();
    }
    return open;
}

void UserConsent::CheckUserConsentThread(Request& request) {
    if (g_pServiceState->m_vorkVersion < FirmwareLevel::UserConsent) {
        Answer(request, kConsentGiven);
        // Despite the log text the answer is not sent, because such firmware accepts none.
        LogInfo("Version check is less than 40 user consent is disabled and send ok to driver");
    } else {
        GetUserConsent(request);
    }
    while (!request.m_bDone)
        if (!SleepWhileOpen(request)) return;
    m_bConsentGiven = 0;
    LogInfo("Consent received by driver is %d", request.answer.Consent);
    g_pServiceState->m_mailBoxDriverInterface.WriteUserConsent(&request.answer);
}

void UserConsent::GetUserConsent(Request& request) {
    LogInfo("Type: 0x%x, Timeout: %d", request.question.Type, request.question.Timeout);
    const bool locked = IsDesktopLocked();
    const uint8_t given = m_bConsentGiven;
    LogInfo("Consent: %d, Consent Given: %d, Type: %d", locked, given, request.question.Type);
    if (locked || given || request.question.Type == 0) {
        LogInfo("Windows is locked send default consent to driver");
        Answer(request, kConsentGiven);
        request.m_bDone = 1;
        return;
    }
    LogInfo("Windows is not locked");
    AskByPipe(request);
}

void UserConsent::AskByPipe(Request& request) {
    const UniqueHandle ended(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    std::unique_ptr<std::thread> thread;
    try {
        if (!ended) {
            LogError("%s: no event to ask the user by: %d", "GetUserConsent", GetLastError());
        } else {
            thread = g_pServiceState->m_detachedThreads.StartOwned([&] {
                UserConsentPipeThread(request);
                SetEvent(ended.Get());
            });
        }
    } catch (const std::system_error& error) {
        LogError("%s: no thread to ask the user: %s", "GetUserConsent", error.what());
    }
    while (!request.m_bDone && SleepWhileOpen(request)) {
    }
    if (!thread) return;
    // An abandoned request may be about to block, so it is cancelled repeatedly.
    while (WaitForSingleObject(ended.Get(), kCancelPoll) == WAIT_TIMEOUT)
        request.pipe.Cancel();
    thread->join();
}

void UserConsent::UserConsentPipeThread(Request& request) {
    const uint64_t deadline =
        SteadyTime() + std::min(request.question.Timeout, kMaxTimeout) * kNanosecondsPerSecond;
    if (!request.pipe.Create()) return;
    if (request.pipe.AwaitClient()) {
        LogInfo("Named pipe connected successfully");
        Converse(request, deadline);
    }
    request.pipe.Close();
}

void UserConsent::Converse(Request& request, uint64_t deadline) {
    const UserConsentQuestion& question = request.question;
    // The original time limit is sent, even when it exceeds the limit that the service applies.
    if (!request.pipe.Write(std::string(kGreeting) + '\n' + std::to_string(question.Type) + '\n' +
                            std::to_string(question.Timeout))) {
        return;
    }
    LogInfo("Value:%s, Type:%d, Time_limit:%d", kGreeting, question.Type, question.Timeout);
    // The deadline is checked only between reads, so a silent client keeps the question open.
    while (SteadyTime() <= deadline) {
        const std::string text = request.pipe.Read();
        LogInfo("Message read from the named pipe is: %s ", text);
        if (ConsentOf(text) != 0) return TakeUsersAnswer(request, text);
        LogInfo("Value received is same as previous");
        if (!SleepWhileOpen(request)) return;
    }
    LogInfo("thread time reached");
    RepeatLastAnswer(request);
    request.m_bDone = 1;
}

void UserConsent::TakeUsersAnswer(Request& request, const std::string& text) {
    LogInfo("Value from consent is %s ", text);
    Answer(request, ConsentOf(text));
    const uint32_t type = request.question.Type;
    if (type == 1 || type == 2) m_bConsentGiven = 1;
    request.m_bDone = 1;
    LogInfo("Consent given by the user is %d", ConsentOf(text));
    LogInfo(
        "Consent 0 => Timeout happend and it will return INVALID for driver, 1 => OK (Consent_yes), 2 => "
        "CANCEL (Consent_no)]");
}

// Sets the request's answer and the stored last answer under one lock, so that another request's answer
// cannot come between them.
void UserConsent::Answer(Request& request, uint32_t consent) {
    std::lock_guard lock(m_mutex);
    request.answer = m_answer = {request.question.Type, consent, 0};
}

// Copies the answer to the previous question, including its type.
void UserConsent::RepeatLastAnswer(Request& request) {
    std::lock_guard lock(m_mutex);
    request.answer = m_answer;
}

// Returns false as soon as the service stops or a later question has replaced this one.
bool UserConsent::SleepWhileOpen(const Request& request) {
    return request.number == m_number && g_pServiceState->SleepUnlessStopping(kPoll) &&
           request.number == m_number;
}
