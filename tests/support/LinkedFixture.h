// The service with its mailbox open and its read loop running, on a PC whose programs a test may write. The
// firmware has the report of the service; nothing else has begun.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/ServiceFixture.h"
#include "testbed/Descriptor.h"

class LinkedFixture : public ServiceFixture {
  protected:
    // The service's own folder.
    static constexpr char kBin[] = "C:\\Program Files\\Tarvix\\Service\\bin\\";

    // What a request that the firmware refuses leaves in the log.
    static constexpr char kRefused[] = "GetOverlappedResult failed for SendIOCtlToDriver with error: ";
    static constexpr char kRefusedReturn[] =
        "Return from MailBoxDriverInterface::SendIOCtlToDriver(), dwIoControlCode = ";

    void SetUp() override;
    void TearDown() override;

    // The firmware's version in tenths.
    void Start(uint32_t version);
    // Until the read thread has handled all that the firmware has sent before.
    void AwaitHandled();
    // From now on the firmware doesn't answer these requests; returns when it has got one.
    void AwaitSilenceAt(const char* request);
    // A session's last words may meet the mailbox closed or closing, and a stop ends its requests.
    void AllowErrorsOfAStop();

    // ---- the PC's programs ----

    // One that has to be made to leave, or until the test is gone: it waits for a word from it. It has no
    // child, nor becomes another program, since either would show in the list of processes for a moment.
    static constexpr char kStubborn[] = "read word < C:/word";
    // A program in the service's folder that runs these lines of the shell, with the PC's root as its folder.
    static void WriteProgram(const std::string& name, const std::string& lines);
    // Those that run.
    static std::vector<DWORD> IdsOf(const std::string& name);
    // All but the test itself, and what they start meanwhile.
    static void KillPrograms();
    static size_t OpenHandles();

  private:
    testbed::Descriptor m_word;
};
