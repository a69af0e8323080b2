#include "fuzz/support/Scenario.h"

#include <array>
#include <chrono>
#include <memory>
#include <string_view>

#include "fuzz/Input.h"
#include "fuzz/support/Host.h"
#include "fuzz/support/Loopback.h"
#include "mailbox/MailboxCodes.h"
#include "service/CommandDispatch.h"
#include "winhost/pc/Pc.h"

using fuzz::Host;
using fuzz::Require;

namespace {

constexpr int kMostSteps = 6;
constexpr size_t kMostLines = 64;  // of the log, for one message

constexpr uint8_t kCommands[] = {
    MPM_ZEL_CMD_DASH_DATA,
    MPM_ZEL_CMD_KVM_DATA,
    MPM_ZEL_CMD_SOFTWARE_UPGRADE,
    MPM_ZEL_CMD_INDICATION_SUBSCRIBE,
    MPM_ZEL_CMD_INDICATION_EVENT,
    MPM_ZEL_CMD_HOST_SLEEP_LIGHT,
    MPM_ZEL_CMD_HOST_CYCLE_SOFT,
    MPM_ZEL_CMD_HOST_OFF_HARD,
    MPM_ZEL_CMD_HOST_HIBERNATE,
    MPM_ZEL_CMD_HOST_OFF_SOFT_GRACE,
    MPM_ZEL_CMD_REBOOT_NONDASH,
    MPM_ZEL_CMD_VNC_SOC_CLOSE,
    MPM_ZEL_CMD_S0i3_RESUME,
    MPM_ZEL_CMD_KVM_ENABLE_STATUS,
    MPM_ZEL_CMD_KVM_IP_PORT_INFO,
    MPM_ZEL_CMD_GET_KVM_CONSENT,
    MPM_ZEL_CMD_WEBUI_CLOSE_SOCKET,
    MPM_ZEL_CMD_GET_ENCODED_FRAMEBUFFER,
    MPM_ZEL_CMD_GET_DISPAY_CONFIG,
    MPM_ZEL_CMD_CSR,
    MPM_ZEL_AD_SERVICE_PWD_UPDATE_CMD,
    MPM_ZEL_SAFEBOOT,
};

// What a command may leave behind, or wait for.
unsigned UsesOf(uint8_t command) {
    switch (command) {
        case MPM_ZEL_CMD_DASH_DATA:
        case MPM_ZEL_CMD_WEBUI_CLOSE_SOCKET:
            return Host::kDash;
        case MPM_ZEL_CMD_REBOOT_NONDASH:
            return Host::kThreads;
        case MPM_ZEL_CMD_S0i3_RESUME:
            return Host::kReports;
        case MPM_ZEL_CMD_VNC_SOC_CLOSE:
        case MPM_ZEL_CMD_KVM_ENABLE_STATUS:
        case MPM_ZEL_SAFEBOOT:
            return Host::kKvm;
        case MPM_ZEL_CMD_GET_KVM_CONSENT:
            return Host::kQuestions;
        default:
            return Host::kNothing;
    }
}

// Requests that the handlers make.
constexpr const char* kRequests[] = {
    "GetMPMStatus",     "GetZELVersion",       "WriteZELStatus", "WriteIPCompleteInformation",
    "WriteOsInfo",      "WriteCloseSocketcmd", "WriteKVMPacket", "WriteDASHPacket",
    "WriteUserConsent", "WriteMultiNwInfo"};
constexpr uint32_t kErrors[] = {1450, 31, 87, 995, 1167, 2};
constexpr uint32_t kVersions[] = {50, 45, 40, 31, 30, 20, 19, 0};

template <size_t N>
bool Holds(const uint8_t (&commands)[N], uint8_t command) {
    return std::find(std::begin(commands), std::end(commands), command) != std::end(commands);
}

class Scenario {
  public:
    Scenario(fuzz::Input input, fuzz::Others others)
        : m_input(input), m_others(others), m_host(Host::Instance()) {}

    void Run() {
        m_host.Service().m_vorkVersion = kVersions[m_input.Byte() % std::size(kVersions)];
        for (; m_steps < kMostSteps && !m_input.AtEnd(); ++m_steps)
            Step(m_input.Byte());
        fuzz::CountSteps(m_steps);
        m_console.Close();
        m_viewer.Close();
        m_person.Reset();
        m_host.Restore();
        m_host.RequireAlive();
    }

  private:
    void Step(uint8_t verb) {
        if (verb < 0x80) {
            const uint8_t command = kCommands[verb % std::size(kCommands)];
            return Message(command, m_input.Block());
        }
        switch (verb & 0x1F) {
            case 0:
                return Message(m_input.Byte(), m_input.Block());
            case 1:
                return LongMessage();
            case 2:
                return ShortMessage();
            case 3:
                m_host.Note(Host::kFaults);
                return m_host.Firmware().Refuse(Request(), kErrors[m_input.Byte() % std::size(kErrors)],
                                                1 + m_input.Byte() % 4);
            case 4:
                m_host.Note(Host::kFaults);
                return m_host.Firmware().ResizeAnswer(Request(), m_input.Byte());
            case 5:
                return m_host.Pace().Pass(std::chrono::milliseconds(m_input.Word()));
            case 6:
                return Control();
            case 7:
                return LockDesktop(m_input.Byte() & 1);
            default:
                break;
        }
        if (m_others == fuzz::Others::Absent) return Message(verb, {});
        switch (verb & 0x1F) {
            case 8:
                return Console();
            case 9:
                return Viewer();
            case 10:
                return Person();
            default:
                return Message(verb, {});
        }
    }

    const char* Request() { return kRequests[m_input.Byte() % std::size(kRequests)]; }

    // ---- one read each ----

    void Message(uint8_t command, fuzz::Bytes payload) {
        std::vector<uint8_t> read(payload.begin(), payload.end());
        read.insert(read.end(), {command, 0});
        Deliver(command, read);
    }

    // Up to a whole buffer.
    void LongMessage() {
        const uint8_t command = m_input.Byte(), fill = m_input.Byte();
        const size_t size = kMailboxTrailerSize + 2 * size_t{m_input.Word()};
        std::vector<uint8_t> read(std::min(size, kMailboxBufferSize), fill);
        read[read.size() - 2] = command;
        Deliver(command, read);
    }

    void ShortMessage() {
        const auto lines = LinesOf({m_input.Byte()});
        Require(lines == 1 && m_host.Log().Has("is too short for a command, ignored"),
                "a message without a command leaves one line");
    }

    void Deliver(uint8_t command, const std::vector<uint8_t>& read) {
        const unsigned uses = UsesOf(command);
        m_host.Note(uses);
        const size_t lines = LinesOf(read, uses != Host::kNothing);
        const bool known = Holds(kCommands, command);
        Require(known ? lines >= 1 && lines <= kMostLines : lines == 2, "the lines of a message are bounded",
                std::to_string(lines) + " for command " + std::to_string(command));
        if (!known)
            Require(m_host.Log().Has("Unknown Command received from driver: 0x"),
                    "an unknown command is logged");
    }

    // The lines that this read leaves, of this thread.
    size_t LinesOf(const std::vector<uint8_t>& read, bool mayWait = false) {
        // Of just this size, so that a byte too far is seen.
        const auto buffer = std::make_unique<uint8_t[]>(read.size());
        std::copy(read.begin(), read.end(), buffer.get());
        m_host.Log().Look();
        const auto deliver = [&] {
            ProcessRead(&m_host.Service(), static_cast<uint32_t>(read.size()), buffer.get());
        };
        if (mayWait) {
            m_host.Pace().Patiently(deliver);
        } else {
            deliver();
        }
        m_host.Log().Look();
        return m_host.Log().LinesOf(GetCurrentThreadId()).size();
    }

    // ---- what else happens ----

    void Control() {
        constexpr uint32_t kEvents[] = {PBT_APMSUSPEND, PBT_APMRESUMEAUTOMATIC, PBT_APMSTANDBY,
                                        PBT_APMRESUMESTANDBY};
        const uint8_t which = m_input.Byte();
        const uint32_t control = which & 0x10 ? SERVICE_CONTROL_INTERROGATE : SERVICE_CONTROL_POWEREVENT;
        m_host.Note(Host::kReports);
        m_host.Pace().Patiently([&] { m_host.Service().ServiceCtrlHandler(control, kEvents[which % 4]); });
    }

    static void LockDesktop(bool locked) {
        winhost::Pc::Instance().Change([&](winhost::PcDescription& pc) { pc.desktopLocked = locked; });
    }

    void Console() {
        m_host.Note(Host::kDash | Host::kReports | Host::kConsole);
        Talk(m_console, m_host.DashPort());
    }
    void Viewer() {
        m_host.Note(Host::kKvm);
        Talk(m_viewer, m_host.KvmPort());
    }

    void Talk(fuzz::LoopbackClient& client, uint16_t port) {
        const uint8_t what = m_input.Byte();
        const fuzz::Bytes bytes = m_input.Block();
        if (!client.IsOpen() && !client.Connect(port)) return;
        client.Send(bytes);
        if (what & 1) m_host.Pace().Settle();
        client.Drain();
        if (what & 2) client.FinishSending();
        if (what & 4) client.Close(what & 8);
    }

    // The program in the user's session.
    void Person() {
        const fuzz::Bytes answer = m_input.Block();
        if (!m_person) {
            m_asked = FALSE;
            m_person.Reset(CreateFileA("\\\\.\\pipe\\userconsentfeature", GENERIC_READ | GENERIC_WRITE, 0,
                                       nullptr, OPEN_EXISTING, 0, nullptr));
        }
        if (!m_person) return;
        m_host.Note(Host::kQuestions);
        m_host.Pace().Patiently([&] {
            char question[512];
            DWORD size = 0;
            if (!m_asked) m_asked = ReadFile(m_person.Get(), question, sizeof question, &size, nullptr);
            WriteFile(m_person.Get(), answer.data(), static_cast<DWORD>(answer.size()), &size, nullptr);
        });
    }

    fuzz::Input m_input;
    const fuzz::Others m_others;
    int m_steps = 0;
    Host& m_host;
    fuzz::LoopbackClient m_console, m_viewer;
    UniqueFileHandle m_person;
    BOOL m_asked = FALSE;  // the question has been read
};

}  // namespace

void fuzz::RunScenario(Bytes input, Others others) {
    Scenario(Input(input), others).Run();
}
