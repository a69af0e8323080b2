#include "fuzz/support/Scenario.h"

#include <array>
#include <chrono>
#include <memory>
#include <string_view>

#include "fuzz/Input.h"
#include "fuzz/support/Host.h"
#include "fuzz/support/Loopback.h"
#include "fuzz/support/Names.h"
#include "service/CommandDispatch.h"
#include "winhost/pc/Pc.h"

using fuzz::Host;
using fuzz::Require;

namespace {

constexpr int kMostSteps = 6;
constexpr size_t kMostLines = 64;  // of the log, for one message

// What a command may leave behind, or wait for. One without a line here may do either.
unsigned UsesOf(uint8_t command) {
    switch (command) {
        case MPM_ZEL_CMD_DASH_DATA:
        case MPM_ZEL_CMD_WEBUI_CLOSE_SOCKET:
            return Host::kDash;
        case MPM_ZEL_CMD_S0i3_RESUME:
            return Host::kReports;
        case MPM_ZEL_CMD_VNC_SOC_CLOSE:
        case MPM_ZEL_CMD_KVM_ENABLE_STATUS:
        case MPM_ZEL_CMD_GET_DISPAY_CONFIG:
        case MPM_ZEL_SAFEBOOT:
            return Host::kKvm;
        case MPM_ZEL_CMD_GET_KVM_CONSENT:
            return Host::kQuestions;
        case MPM_ZEL_CMD_CSR:
            return Host::kThreads;
        case MPM_ZEL_CMD_KVM_DATA:
        case MPM_ZEL_CMD_SOFTWARE_UPGRADE:
        case MPM_ZEL_CMD_INDICATION_SUBSCRIBE:
        case MPM_ZEL_CMD_INDICATION_EVENT:
        case MPM_ZEL_CMD_HOST_SLEEP_LIGHT:
        case MPM_ZEL_CMD_HOST_CYCLE_SOFT:
        case MPM_ZEL_CMD_HOST_OFF_HARD:
        case MPM_ZEL_CMD_HOST_HIBERNATE:
        case MPM_ZEL_CMD_HOST_OFF_SOFT_GRACE:
        case MPM_ZEL_CMD_KVM_IP_PORT_INFO:
        case MPM_ZEL_CMD_GET_ENCODED_FRAMEBUFFER:
            return Host::kNothing;
        case MPM_ZEL_AD_SERVICE_PWD_UPDATE_CMD:
            return Host::kThreads;
        default:
            return fuzz::IsCommand(command) ? Host::kThreads : Host::kNothing;
    }
}

constexpr uint32_t kErrors[] = {1450, 31, 87, 995, 1167, 2};
constexpr uint8_t kLevels = 64;   // the level of the firmware is below
constexpr uint8_t kVerbs = 0x80;  // a smaller byte is a message
// Of so small a number that many inputs name one that there is. The others have a verb of their own.
constexpr uint8_t kCommands = 64;
constexpr int kMostFields = 8;             // of a record
constexpr uint8_t kRequestFunctions = 64;  // requests are named by a smaller number

class Scenario {
  public:
    Scenario(fuzz::Input input, fuzz::Others others)
        : m_input(input), m_others(others), m_host(Host::Instance()) {}

    void Run() {
        m_host.Service().m_vorkVersion = m_input.Byte() % kLevels;
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
        if (verb < kVerbs) return Message(verb % kCommands, m_input.Block());
        switch (verb & 0x1F) {
            case 0:
                return Message(m_input.Byte(), m_input.Block());
            case 1:
                return LongMessage();
            case 2:
                return ShortMessage();
            case 3:
                return Refuse();
            case 4:
                return ResizeAnswer();
            case 5:
                return m_host.Pace().Pass(std::chrono::milliseconds(m_input.Word()));
            case 6:
                return Control();
            case 7:
                return LockDesktop(m_input.Byte() & 1);
            case 11:
                return Record();
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

    // ---- faults of the firmware; none for a request that there is not ----

    uint32_t RequestCode() { return fuzz::CodeOfFunction(m_input.Byte() % kRequestFunctions); }

    void Refuse() {
        const uint32_t code = RequestCode(), error = kErrors[m_input.Byte() % std::size(kErrors)];
        const int times = 1 + m_input.Byte() % 4;
        if (!fuzz::IsRequest(code)) return;
        m_host.Note(Host::kFaults);
        m_host.Firmware().Refuse(code, error, times);
    }

    void ResizeAnswer() {
        const uint32_t code = RequestCode();
        const size_t size = m_input.Byte();
        if (!fuzz::IsRequest(code)) return;
        m_host.Note(Host::kFaults);
        m_host.Firmware().ResizeAnswer(code, size);
    }

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

    // Zeros with a few fields between them, so that a short input makes a long record.
    void Record() {
        const uint8_t command = m_input.Byte();
        std::vector<uint8_t> read(m_input.Word() % (kMailboxBufferSize - kMailboxTrailerSize));
        for (int fields = m_input.Byte() % kMostFields; fields > 0; --fields) {
            const size_t offset = m_input.Word();
            const fuzz::Bytes field = m_input.Block();
            if (offset >= read.size()) continue;
            std::copy_n(field.begin(), std::min(field.size(), read.size() - offset),
                        read.begin() + static_cast<std::ptrdiff_t>(offset));
        }
        read.insert(read.end(), {command, 0});
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
        if (uses & Host::kKvm) m_host.EndDisplay();
        const size_t lines = LinesOf(read, uses != Host::kNothing);
        const bool known = fuzz::IsCommand(command);
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
            DWORD mode = PIPE_READMODE_MESSAGE;
            if (m_person) SetNamedPipeHandleState(m_person.Get(), &mode, nullptr, nullptr);
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
