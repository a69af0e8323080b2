// The service's object on a simulated PC, with the simulated firmware behind its mailbox. The log is open
// from the start. A test fails when the log holds an ERROR line that it did not expect.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "firmware/Firmware.h"
#include "service/ZELService.h"
#include "tests/support/PcFixture.h"
#include "tests/support/ServiceLog.h"

class ServiceFixture : public PcFixture {
  protected:
    // A derived fixture that overrides these calls them first, and last.
    void SetUp() override;
    void TearDown() override;
    void Describe(winhost::PcDescription& description) override;

    // Opens the device and the gate, as after a first report to the firmware.
    void OpenMailbox();
    // Runs what the SCM's start runs. The driver initialisation goes on in its own time.
    void StartService();
    // Lets time pass until the first report to the firmware is over and the service listens for consoles.
    void AwaitListener();
    // Runs the stop as the SCM's control does, to its end. The log is closed then.
    void StopService();
    // Handles a control, for which time passes as long as it waits for a firmware that doesn't answer.
    void HandleInTime(DWORD control, DWORD eventType = 0);

    // An ERROR line with this text has to come, any number of times.
    void ExpectError(const std::string& text) { m_expectedErrors.push_back(text); }
    void ExpectErrors(const std::vector<std::string>& texts);
    // An ERROR line with this text may come.
    void AllowError(const std::string& text) { m_allowedErrors.push_back(text); }

    // The lines that the service has written since the test began.
    std::vector<LogLine> Log() const;
    std::vector<std::string> Messages() const;
    // Messages that hold the text.
    size_t LogCount(const std::string& text) const;
    // Waits until so many messages hold the text.
    void AwaitLog(const std::string& text, size_t count = 1);
    // Messages that hold these texts stand in the log in this order, others may stand between them.
    void ExpectLogInOrder(const std::vector<std::string>& texts) const;
    // Whether a line of this level has just this message.
    bool HasLine(const std::string& level, const std::string& message) const;

    mpm::Firmware firmware;
    std::unique_ptr<ZELService> service;

  private:
    void CheckErrors() const;
    LogTail& Tail() const;

    std::vector<std::string> m_expectedErrors, m_allowedErrors;
    mutable std::once_flag m_tailMade;
    mutable std::unique_ptr<LogTail> m_tail;
};
