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

// 0 for a text that is no answer.
uint32_t ConsentOf(const std::string& text) {
    if (text == "Consent_yes") return kConsentGiven;
    // Somebody who doesn't answer refuses.
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

// A program may no longer come upon the pipe of a question whose place this one has taken.
void UserConsent::GiveUpEarlierThan(Request& request) {
    // One of them may be just about to block, and is to be cancelled again.
    while (CancelEarlierThan(request))
        Sleep(kCancelPoll);
    if (request.number != m_number) request.pipe.Cancel();
}

// True while there still is a pipe of one of them.
bool UserConsent::CancelEarlierThan(const Request& request) {
    std::lock_guard lock(m_mutex);
    bool open = false;
    for (Request* const other : m_requests) {
        // One that has its answer meets nobody any more, and that answer still goes.
        if (other->number >= request.number || other->m_bDone) continue;
        other->pipe.Cancel();
        open |= other->pipe.IsOpen();
    }
    return open;
}

void UserConsent::CheckUserConsentThread(Request& request) {
    if (g_pServiceState->m_vorkVersion < FirmwareLevel::UserConsent) {
        Answer(request, kConsentGiven);
        // In spite of what it says the answer stays here: such firmware takes none.
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
    // One that is given up may be just about to block.
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
    // The time limit as it came, also when it is longer than this side waits.
    if (!request.pipe.Write(std::string(kGreeting) + '\n' + std::to_string(question.Type) + '\n' +
                            std::to_string(question.Timeout))) {
        return;
    }
    LogInfo("Value:%s, Type:%d, Time_limit:%d", kGreeting, question.Type, question.Timeout);
    // Only looked at between reads: a client that stays silent holds the question.
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

// At once for the question and for those to come: that of another must not get between.
void UserConsent::Answer(Request& request, uint32_t consent) {
    std::lock_guard lock(m_mutex);
    request.answer = m_answer = {request.question.Type, consent, 0};
}

// Still the one to the question before, its type included.
void UserConsent::RepeatLastAnswer(Request& request) {
    std::lock_guard lock(m_mutex);
    request.answer = m_answer;
}

// False as soon as the service stops, and when a later question has taken the place of this one.
bool UserConsent::SleepWhileOpen(const Request& request) {
    return request.number == m_number && g_pServiceState->SleepUnlessStopping(kPoll) &&
           request.number == m_number;
}
