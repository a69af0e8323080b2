#include "tests/support/ServiceFixture.h"

#include <algorithm>
#include <atomic>
#include <thread>

#include "base/ZELLogger.h"
#include "winhost/core/HandleTable.h"
#include "winhost/wmi/ComObject.h"

namespace {

constexpr char kLogPath[] = "C:\\ProgramData\\Tarvix\\Manageability\\zel.log";

bool HoldsAny(const std::string& message, const std::vector<std::string>& texts) {
    return std::any_of(texts.begin(), texts.end(),
                       [&](const std::string& text) { return message.find(text) != std::string::npos; });
}

size_t CountIn(const std::vector<LogLine>& lines, const std::string& text) {
    return static_cast<size_t>(std::count_if(lines.begin(), lines.end(), [&](const LogLine& line) {
        return line.message.find(text) != std::string::npos;
    }));
}

}  // namespace

void ServiceFixture::SetUp() {
    PcFixture::SetUp();
    service = std::make_unique<ZELService>("");
    ASSERT_TRUE(service->InitializeLogging());
    // The firmware of most tests has no data for a cloud connection.
    AllowError("Unable to open cloud.txt file");
}

void ServiceFixture::TearDown() {
    // As at the end of the process: the log is closed, and time passes by itself.
    Clock().SetManual(false);
    Gate().Reset();
    ZELLogger::Instance()->CloseLog();
    service.reset();
    CheckErrors();
    EXPECT_EQ(winhost::HandleTable::Instance().StaleCloses(), 0u) << "a handle was closed twice";
    EXPECT_EQ(winhost::StaleComUses(), 0u) << "a COM object was used after CoUninitialize";
    PcFixture::TearDown();
}

void ServiceFixture::Describe(winhost::PcDescription& description) {
    firmware.Listen("unix:" + (Folder() / "mailbox").string());
    description.mailbox = firmware.Address();
}

void ServiceFixture::OpenMailbox() {
    ASSERT_EQ(service->m_mailBoxDriverInterface.OpenMPMDevice(), 0u);
    service->m_mailBoxDriverInterface.m_bServiceUp = 1;
}

void ServiceFixture::StartService() {
    std::thread start([this] { EXPECT_TRUE(service->ServiceSetup()); });
    // One second for the installation path.
    PassSleepOf(std::chrono::seconds(1));
    start.join();
}

void ServiceFixture::AwaitListener() {
    using namespace std::chrono_literals;
    EXPECT_TRUE(Eventually([this] {
        if (LogCount("Calling HTTPS Socket Accept") > 0) return true;
        if (Clock().AwaitSleeper(100ms, 1ms)) Advance(100ms);
        return false;
    })) << "the service does not listen";
}

void ServiceFixture::StopService() {
    service->ServiceCtrlHandler(SERVICE_CONTROL_STOP, 0);
}

void ServiceFixture::HandleInTime(DWORD control, DWORD eventType) {
    using namespace std::chrono_literals;
    std::atomic<bool> over{false};
    std::thread handler([&] {
        service->ServiceCtrlHandler(control, eventType);
        over = true;
    });
    const bool ended = Eventually([&] {
        if (!over && Clock().AwaitSleeper(2s, 1ms)) Advance(2s);
        return over.load();
    });
    if (!ended) Clock().SetManual(false);
    handler.join();
    EXPECT_TRUE(ended) << "the control does not end";
}

void ServiceFixture::ExpectErrors(const std::vector<std::string>& texts) {
    m_expectedErrors.insert(m_expectedErrors.end(), texts.begin(), texts.end());
}

// Made with the first look, because the fault sweep has a world of its own instead of SetUp.
LogTail& ServiceFixture::Tail() const {
    std::call_once(m_tailMade, [this] { m_tail = std::make_unique<LogTail>(HostPath(kLogPath)); });
    return *m_tail;
}

std::vector<LogLine> ServiceFixture::Log() const {
    return Tail().All();
}

std::vector<std::string> ServiceFixture::Messages() const {
    std::vector<std::string> messages;
    Tail().Look([&](const std::vector<LogLine>& lines) {
        for (const LogLine& line : lines)
            messages.push_back(line.message);
    });
    return messages;
}

size_t ServiceFixture::LogCount(const std::string& text) const {
    size_t count = 0;
    Tail().Look([&](const std::vector<LogLine>& lines) { count = CountIn(lines, text); });
    return count;
}

void ServiceFixture::AwaitLog(const std::string& text, size_t count) {
    const auto isThere = [&](const std::vector<LogLine>& lines) { return CountIn(lines, text) >= count; };
    ASSERT_TRUE(Tail().Await(isThere, kPatience)) << "never logged: " << text;
}

void ServiceFixture::ExpectLogInOrder(const std::vector<std::string>& texts) const {
    const std::vector<std::string> messages = Messages();
    auto from = messages.begin();
    for (const std::string& text : texts) {
        const auto found = std::find_if(from, messages.end(), [&](const std::string& message) {
            return message.find(text) != std::string::npos;
        });
        if (found == messages.end()) {
            ADD_FAILURE() << "not logged, or not in this order: " << text << "\n"
                          << ::testing::PrintToString(messages);
            return;
        }
        from = found + 1;
    }
}

bool ServiceFixture::HasLine(const std::string& level, const std::string& message) const {
    const std::vector<LogLine> lines = Log();
    return std::any_of(lines.begin(), lines.end(),
                       [&](const LogLine& line) { return line.level == level && line.message == message; });
}

void ServiceFixture::CheckErrors() const {
    std::vector<std::string> errors;
    for (const LogLine& line : Log()) {
        EXPECT_FALSE(line.level.empty()) << "not a line of the log's form: " << line.text;
        if (line.level == "ERROR") errors.push_back(line.message);
    }
    for (const std::string& error : errors)
        EXPECT_TRUE(HoldsAny(error, m_expectedErrors) || HoldsAny(error, m_allowedErrors))
            << "unexpected ERROR line: " << error;
    for (const std::string& text : m_expectedErrors)
        EXPECT_TRUE(std::any_of(errors.begin(), errors.end(),
                                [&](const std::string& error) { return HoldsAny(error, {text}); }))
            << "this ERROR line never came: " << text;
}
