// The firmware asks the person at the PC, by a program that talks to the service over the pipe.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <chrono>
#include <cstdint>
#include <future>
#include <ostream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "mailbox/ConsentRecords.h"
#include "tests/support/LinkedFixture.h"

inline bool operator==(const UserConsentAnswer& a, const UserConsentAnswer& b) {
    return a.Type == b.Type && a.Consent == b.Consent && a.reserved == b.reserved;
}
inline void PrintTo(const UserConsentAnswer& answer, std::ostream* out) {
    *out << "type " << answer.Type << ", consent " << answer.Consent << ", reserved " << answer.reserved;
}

// The program in the user's session.
class ConsentClient {
  public:
    // Connects as soon as there is a pipe.
    ConsentClient() {
        while (true) {
            m_pipe.Reset(CreateFileA("\\\\.\\pipe\\userconsentfeature", GENERIC_READ | GENERIC_WRITE, 0,
                                     nullptr, OPEN_EXISTING, 0, nullptr));
            if (m_pipe) break;
            if (--m_patience == 0) throw std::runtime_error("no pipe for the question");
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        DWORD mode = PIPE_READMODE_MESSAGE;
        SetNamedPipeHandleState(m_pipe.Get(), &mode, nullptr, nullptr);
    }
    ~ConsentClient() { Leave(); }

    // The next message, NULs included; empty when the service has hung up.
    std::string Read() {
        std::string text(512, '\0');
        DWORD size = 0;
        if (!ReadFile(m_pipe.Get(), text.data(), static_cast<DWORD>(text.size()), &size, nullptr)) return {};
        text.resize(size);
        return text;
    }
    // One message, which the service may read later. One at a time.
    void Say(const std::string& text) {
        m_said = std::async(std::launch::async, [pipe = m_pipe.Get(), text] {
            DWORD size = 0;
            WriteFile(pipe, text.data(), static_cast<DWORD>(text.size()), &size, nullptr);
        });
    }
    void Leave() { m_pipe.Reset(); }

  private:
    int m_patience = 20000;  // milliseconds, at least
    UniqueFileHandle m_pipe;
    std::future<void> m_said;
};

class ConsentFixture : public LinkedFixture {
  protected:
    static constexpr char kAsked[] = "Waiting for the named pipe connection";
    static constexpr char kConnected[] = "Named pipe connected successfully";
    static constexpr char kIgnored[] = "Value received is same as previous";
    static constexpr char kTaken[] = "Consent given by the user is ";
    static constexpr char kSent[] = "Consent received by driver is ";
    static constexpr char kTimeReached[] = "thread time reached";

    static constexpr UserConsentAnswer kNone{0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF};

    void Start(uint32_t version = 40) { LinkedFixture::Start(version); }
    void Ask(uint32_t type, uint32_t timeout = 30) {
        firmware.Send(MPM_ZEL_CMD_GET_KVM_CONSENT, mpm::Bytes::Of(UserConsentQuestion{type, timeout}));
    }
    // Until the text has been logged, by a question that gives up another one first.
    void AwaitLogGivingUp(const std::string& text, size_t count = 1) {
        ASSERT_TRUE(Eventually([&] {
            if (Clock().AwaitSleeper(std::chrono::milliseconds(10), std::chrono::milliseconds(1)))
                Advance(std::chrono::milliseconds(10));
            return LogCount(text) >= count;
        }));
    }
    // Asks, and answers as the person does. Until the answer has been taken.
    void AskAndAnswer(uint32_t type, const std::string& answer) {
        const size_t before = LogCount(kTaken);
        Ask(type);
        ConsentClient client;
        client.Read();
        client.Say(answer);
        AwaitLog(kTaken, before + 1);
    }
    // Lets time pass, 3 seconds at a time, until the firmware has so many answers. The last of them.
    UserConsentAnswer AwaitAnswer(size_t count = 1) {
        const bool came = Eventually([&] {
            if (firmware.Count("WriteUserConsent") >= count) return true;
            if (Clock().AwaitSleepers(1, std::chrono::milliseconds(1))) Advance(std::chrono::seconds(3));
            return false;
        });
        const auto answers = firmware.Requests("WriteUserConsent");
        return came && answers.size() == count ? answers.back().As<UserConsentAnswer>() : kNone;
    }
    // So many threads wait for the next look, 3 seconds each: the one that asks, and the one that talks when
    // it has received what is no answer.
    static void PassLooks(size_t threads) {
        ASSERT_TRUE(Clock().AwaitSleepersOf(std::chrono::seconds(3), threads));
        Advance(std::chrono::seconds(3));
    }
    // Nothing goes to the firmware, however long one waits.
    void ExpectNoAnswer(size_t before = 0) {
        for (int look = 0; look < 5; ++look) {
            ASSERT_TRUE(Clock().AwaitSleepers(1));
            Advance(std::chrono::seconds(3));
        }
        EXPECT_EQ(firmware.Count("WriteUserConsent"), before);
        EXPECT_EQ(LogCount(kSent), before);
    }
    static size_t Pipes() { return Gate().Count("CreateNamedPipeA"); }
};
