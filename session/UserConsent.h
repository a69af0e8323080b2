// The question whether a remote console may see or control the host. The firmware asks it, a program in the
// user's session puts it to the person at the machine, and the answer goes back to the firmware, which alone
// decides.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <vector>

#include "mailbox/ConsentRecords.h"
#include "session/ConsentPipe.h"

class UserConsent {
  public:
    // Takes the firmware's question, at most as much of it as there is room for, and has it answered on a
    // detached thread. An earlier question without an answer is given up. The mailbox read thread; returns at
    // once. A failed thread creation throws std::system_error.
    void Ask(const void* payload, size_t length);

  private:
    // One question, from the firmware's command to the answer.
    struct Request {
        Request(uint32_t itsNumber, const UserConsentQuestion& asked) : number(itsNumber), question(asked) {}
        const uint32_t number;
        // Packed records fall on any address, but what refers to their fields needs them aligned.
        alignas(uint32_t) const UserConsentQuestion question;
        std::atomic<uint8_t> m_bDone{0};  // the answer is ready
        // Not touched before m_bDone by any but the thread that sets it.
        alignas(uint32_t) UserConsentAnswer answer{};
        ConsentPipe pipe;
    };

    void Serve(Request& request);
    void GiveUpEarlierThan(Request& request);
    bool CancelEarlierThan(const Request& request);
    void CheckUserConsentThread(Request& request);
    void GetUserConsent(Request& request);
    void AskByPipe(Request& request);
    void UserConsentPipeThread(Request& request);
    void Converse(Request& request, uint64_t deadline);
    void TakeUsersAnswer(Request& request, const std::string& text);
    void Answer(Request& request, uint32_t consent);
    void RepeatLastAnswer(Request& request);
    bool SleepWhileOpen(const Request& request);

    std::mutex m_mutex;
    UserConsentQuestion m_question{};
    std::vector<Request*> m_requests;  // that have not come to their end
    // Keeps the last answer, which a question that runs into its time limit repeats.
    UserConsentAnswer m_answer{0, kConsentGiven, 0};
    // After a user's answer to a question of type 1 or 2, until it has gone to the firmware.
    std::atomic<uint8_t> m_bConsentGiven{0};
    std::atomic<uint32_t> m_number{0};  // of the last question
};
