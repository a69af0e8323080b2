// Asks the user whether a remote console may see or control the host. The firmware sends the question, a
// program in the user's session shows it, and the service returns the answer to the firmware. Only the
// firmware acts on the answer.
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
    // Copies the firmware's question, truncated to the size of the record, and starts a detached thread that
    // obtains the answer. An earlier question without an answer is abandoned. Returns at once. Called on the
    // mailbox read thread. Throws std::system_error when the thread cannot be created.
    void Ask(const void* payload, size_t length);

  private:
    // One question, from the firmware's command to the answer.
    struct Request {
        Request(uint32_t itsNumber, const UserConsentQuestion& asked) : number(itsNumber), question(asked) {}
        const uint32_t number;
        // A packed record may lie at any address, but references to its fields require alignment.
        alignas(uint32_t) const UserConsentQuestion question;
        std::atomic<uint8_t> m_bDone{0};  // the answer is ready
        // Until m_bDone is set, only the thread that sets it accesses this.
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
    std::vector<Request*> m_requests;  // requests that have not ended
    // Stores the last answer. A question that reaches its time limit repeats it.
    UserConsentAnswer m_answer{0, kConsentGiven, 0};
    // Set when the user answers a question of type 1 or 2, and cleared when the answer goes to the firmware.
    std::atomic<uint8_t> m_bConsentGiven{0};
    std::atomic<uint32_t> m_number{0};  // number of the last question
};
