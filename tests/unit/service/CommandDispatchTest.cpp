// What each command of the firmware sets off.
#include <algorithm>
#include <map>

#include "mailbox/MailboxTables.h"
#include "service/CommandDispatch.h"
#include "tests/support/ServiceFixture.h"

namespace {

struct Words {
    int command;
    std::vector<std::string> lines;
};

class Dispatch : public ServiceFixture {
  protected:
    // Dispatches one message and returns the lines behind the one that announces it.
    std::vector<std::string> Process(int command, const std::string& payload = {}) {
        std::vector<uint8_t> message(payload.begin(), payload.end());
        message.push_back(static_cast<uint8_t>(command));
        message.push_back(0xEE);
        const size_t before = Messages().size();
        ProcessRead(service.get(), static_cast<uint32_t>(message.size()), message.data());
        std::vector<std::string> lines = Messages();
        lines.erase(lines.begin(), lines.begin() + static_cast<long>(before));
        EXPECT_FALSE(lines.empty());
        EXPECT_EQ(lines.front(), "ProcessRead: received command from driver " + std::to_string(command) +
                                     ", bytes read " + std::to_string(payload.size()));
        lines.erase(lines.begin());
        return lines;
    }
};

// The lines of commands that leave the same ones with and without a payload.
const std::vector<Words> kWords = {
    {19, {"ProcessRead: Sleep Command received: MPM_ZEL_CMD_HOST_SLEEP_LIGHT"}},
    {21, {"ProcessRead: Reboot Command received: MPM_ZEL_CMD_HOST_CYCLE_SOFT"}},
    {22, {"ProcessRead: Shutdown Command received: MPM_ZEL_CMD_HOST_OFF_HARD"}},
    {23, {"ProcessRead: Hibernate Command received: MPM_ZEL_CMD_HOST_HIBERNATE"}},
    {28, {"ProcessRead: Sleep Command received: MPM_ZEL_CMD_HOST_OFF_SOFT_GRACE"}},
    {48,
     {"LUX_KVM: MPM_ZEL_CMD_GET_ENCODED_FRAMEBUFFER receveid",
      "LUX_KVM: m_DisplayMgrEvent null, nothing to post 1"}},
    {49, {"LUX_KVM: MPM_ZEL_CMD_GET_DISPAY_CONFIG receveid", "LUX_KVM: DoInitLUXKVM success"}},
};

// Commands with tests of their own, here and in tests/unit of hostcontrol, identity, kvm and session.
const std::map<int, std::string> kTestedApart = {
    {8, "MPM_ZEL_CMD_DASH_DATA"},
    {9, "MPM_ZEL_CMD_KVM_DATA"},
    {10, "MPM_ZEL_CMD_SOFTWARE_UPGRADE"},
    {11, "MPM_ZEL_CMD_INDICATION_SUBSCRIBE"},
    {12, "MPM_ZEL_CMD_INDICATION_EVENT"},
    {33, "MPM_ZEL_CMD_REBOOT_NONDASH"},
    {35, "MPM_ZEL_CMD_VNC_SOC_CLOSE"},
    {37, "MPM_ZEL_CMD_S0i3_RESUME"},
    {38, "MPM_ZEL_CMD_KVM_ENABLE_STATUS"},
    {39, "MPM_ZEL_CMD_KVM_IP_PORT_INFO"},
    {40, "MPM_ZEL_CMD_GET_KVM_CONSENT"},
    {41, "MPM_ZEL_CMD_WEBUI_CLOSE_SOCKET"},
    {50, "MPM_ZEL_CMD_CSR"},
    {51, "MPM_ZEL_AD_SERVICE_PWD_UPDATE_CMD"},
    {52, "MPM_ZEL_SAFEBOOT"},
};

// Whether a test here expects this command by this name.
bool IsTested(const FirmwareCommand& command) {
    if (const auto apart = kTestedApart.find(command.number); apart != kTestedApart.end())
        return apart->second == command.name;
    for (const Words& words : kWords)
        if (words.command == command.number)
            return words.lines.front().find(command.name) != std::string::npos;
    return false;
}

}  // namespace

TEST_F(Dispatch, EveryCommandOfTheTableIsTested) {
    for (const FirmwareCommand& command : kFirmwareCommands)
        EXPECT_TRUE(IsTested(command)) << command.name << " (" << int(command.number)
                                       << ") stands neither in kWords nor in kTestedApart";
    EXPECT_EQ(std::size(kFirmwareCommands), kWords.size() + kTestedApart.size());
}

TEST_F(Dispatch, EachCommandHasItsWordsWithAndWithoutAPayload) {
    for (const Words& words : kWords) {
        EXPECT_EQ(Process(words.command), words.lines) << words.command;
        EXPECT_EQ(Process(words.command, "payload"), words.lines) << words.command;
    }
}

TEST_F(Dispatch, EveryOtherNumberIsUnknown) {
    for (int command = 0; command < 256; ++command) {
        if (std::any_of(std::begin(kFirmwareCommands), std::end(kFirmwareCommands),
                        [=](const FirmwareCommand& known) { return known.number == command; }))
            continue;
        char text[64];
        std::snprintf(text, sizeof text, "ProcessRead: Unknown Command received from driver: 0x%x", command);
        EXPECT_EQ(Process(command), std::vector<std::string>{text});
    }
    EXPECT_EQ(Process(53).back(), "ProcessRead: Unknown Command received from driver: 0x35");
}

TEST_F(Dispatch, DashDataGoToTheClient) {
    const auto lines = Process(8, "answer");
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(lines[0], "updateDataToClient: Updating data to be sent from MPM to client");
    EXPECT_EQ(lines[1], "Buffer size 6");
}

TEST_F(Dispatch, ThePowerActionFollowsTheAnswerThatReportsIt) {
    Process(22);
    const auto lines = Process(8, "answer");
    const auto passedOn = std::find(lines.begin(), lines.end(), "updateDataToClient: exit");
    ASSERT_NE(passedOn, lines.end());
    EXPECT_NE(std::find(passedOn, lines.end(), "DoSytemShutdown: Shutdown initiated"), lines.end());
}

TEST_F(Dispatch, EmptyDashDataAreIgnored) {
    EXPECT_TRUE(Process(8).empty());
}

TEST_F(Dispatch, TheEndOfS0i3WakesTheFirmware) {
    ASSERT_EQ(service->m_mailBoxDriverInterface.OpenMPMDevice(), 0u);
    EXPECT_EQ(Process(37)[0], "MPM_ZEL_CMD_S0i3_RESUME send data to MPM upon resume from S0i3");
    EXPECT_TRUE(firmware.AwaitRequest("WriteMultiNwInfo"));
    EXPECT_EQ(firmware.Requests()[0].name, "GetMPMStatus");
}

TEST_F(Dispatch, TheWebPageTakesTheDashSocket) {
    const auto lines = Process(41);
    ASSERT_GE(lines.size(), 3u);
    EXPECT_EQ(lines.front(), "MPM_ZEL_CMD_WEBUI_CLOSE_SOCKET asks for DASH socket close as webUI is served");
    EXPECT_EQ(lines[1], "Accept socket is Invalid");
    EXPECT_EQ(lines.back(), "MPM_ZEL_CMD_WEBUI_CLOSE_SOCKET exit");
}

TEST_F(Dispatch, AMessageTooShortForACommandIsIgnored) {
    const uint8_t byte = 8;
    for (uint32_t size : {0u, 1u})
        ProcessRead(service.get(), size, &byte);
    EXPECT_TRUE(HasLine("WARN", "ProcessRead: message of 1 byte(s) is too short for a command, ignored"));
    EXPECT_EQ(LogCount("received command from driver"), 0u);
}
