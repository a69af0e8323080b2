// The processor's connections: DASH, KVM and the screen.
#include "firmware/Bridge.h"
#include "firmware/Processor.h"
#include "firmware/dash/Power.h"
#include "mailbox/FirmwareLevels.h"

namespace mpm {

namespace {

constexpr uint16_t kDashPort = 664;
constexpr uint16_t kKvmPort = 22;

}  // namespace

void Processor::AdoptScreen() {
    if (m_settings.Kvm != Peer::Screen) return m_screen.reset();
    if (m_screen) return m_screen->Adopt(m_settings.Screen);
    m_screen = std::make_unique<DisplayClient>(
        m_loop, m_settings.Screen,
        DisplayClient::Host{
            .send = [this](MpmCommand command) { Send(command, {}, 0); },
            .sendToViewer =
                [this](std::span<const uint8_t> bytes) { SendStream(MPM_ZEL_CMD_KVM_DATA, bytes); },
            .isBehind = [this] { return HostIsBehind(); },
            .note = [this](const std::string& text) { Note("screen", text); }});
    m_screen->Observe(m_screenObserver);
}

void Processor::ObserveScreen(std::shared_ptr<ScreenObserver> observer) {
    m_screenObserver = std::move(observer);
    if (m_screen) m_screen->Observe(m_screenObserver);
}

bool Processor::IsQuiet(uint32_t requestCode) const {
    return m_screen && !m_settings.Screen.Trace &&
           (requestCode == MailboxCode::WriteEncodedBuffer || requestCode == MailboxCode::WriteKVMPacket);
}

bool Processor::IsQuiet(uint8_t command) const {
    return m_screen && !m_settings.Screen.Trace &&
           (command == MPM_ZEL_CMD_GET_ENCODED_FRAMEBUFFER || command == MPM_ZEL_CMD_KVM_DATA);
}

void Processor::TakeStream(const LinkRequest& request, uint8_t command, std::span<const uint8_t> answer) {
    const bool isDash = command == MPM_ZEL_CMD_DASH_DATA;
    const Peer kind = isDash ? m_settings.Dash : m_settings.Kvm;
    if (kind == Peer::Echo) {
        SendStream(command, request.input);
        // A host that sends but does not read is held back, as its own client would be.
        if (HostIsBehind())
            m_paced.push_back(request);
        else
            m_link.Answer(request, 0, {});
        return;
    }
    m_link.Answer(request, 0, answer);
    if (kind == Peer::None) {
        const auto take = m_takeDash;
        if (isDash && take) (*take)(request.input);
        return;
    }
    auto& peer = isDash ? m_dash : m_kvm;
    // Only a viewer that was announced has a screen.
    if (!peer && kind == Peer::Screen) return;
    if (!peer) peer = MakePeer(command);
    peer->Take(request.input);
}

DashEndpoint& Processor::Endpoint() {
    if (m_endpoint) return *m_endpoint;
    m_endpoint.emplace([this]() -> const Settings& { return m_settings; });
    OfferPower(
        m_endpoint->Service(), [this] { return Host()["WriteOsInfo"]["HostName"].asString(); },
        [this](MpmCommand command) { Send(command, {}, 0); });
    return *m_endpoint;
}

std::unique_ptr<StreamPeer> Processor::MakePeer(uint8_t command) {
    const bool isDash = command == MPM_ZEL_CMD_DASH_DATA;
    if (isDash) m_dashEnded = false;
    const auto send = [this, command](std::span<const uint8_t> bytes) { SendStream(command, bytes); };
    // KVM data is not dropped by the host, and needs no pause.
    const std::chrono::milliseconds pause(isDash ? m_settings.DashPause : 0);
    if (isDash && m_settings.Dash == Peer::Identify)
        return Endpoint().Accept(
            m_loop, pause, send, [this](const std::string& text) { Note("dash", text); },
            [this] { EndDash(); });
    return std::make_unique<Bridge>(
        m_loop, isDash ? m_settings.DashServer : m_settings.KvmServer, pause, send,
        [this] { return HostIsBehind(); },
        [this, isDash](const std::string& reason) {
            Note(isDash ? "dash" : "kvm", "bridge: " + reason);
            if (isDash)
                EndDash();
            else
                Send(MPM_ZEL_CMD_VNC_SOC_CLOSE, {}, 0);
        });
}

void Processor::Retire(std::unique_ptr<StreamPeer>& peer) {
    if (!peer) return;
    m_retired.push_back(std::move(peer));
    m_loop.After({}, [this] { m_retired.clear(); });
}

bool Processor::HostIsBehind() const {
    return m_link.UnreadBytes() > LinkServer::kComfortable;
}

void Processor::HostHasRead() {
    AnswerPaced();
    for (auto* peer : {m_dash.get(), m_kvm.get()})
        if (peer) peer->HostHasRead();
}

void Processor::AnswerPaced() {
    for (const LinkRequest& request : std::exchange(m_paced, {}))
        m_link.Answer(request, 0, {});
}

void Processor::OnConnection(const IPCompleteInfo& info) {
    if (info.PeerMarker != 0xFFFF || info.PeerPort == 0) return;
    if (info.Port == kDashPort) {
        Retire(m_dash);
        m_dashEnded = false;
    }
    if (info.Port != kKvmPort) return;
    Retire(m_kvm);
    // A server of screens speaks first.
    if (m_settings.Kvm == Peer::Bridge) m_kvm = MakePeer(MPM_ZEL_CMD_KVM_DATA);
    if (m_screen) m_kvm = m_screen->AcceptViewer();
}

void Processor::OnConnectionClosed(uint16_t port) {
    if (port == kKvmPort) EndKvm();
    if (port != kDashPort) return;
    Retire(m_dash);
    if (m_settings.uVORKVersion >= FirmwareLevel::DashCloseByFirmware && m_settings.EndsClosedSessions)
        EndDash();
}

void Processor::EndKvm() {
    Retire(m_kvm);
    if (m_screen) m_screen->End();
}

void Processor::EndDash() {
    if (!m_dashEnded) Send(MPM_ZEL_CMD_WEBUI_CLOSE_SOCKET, {}, 0);
}

void Processor::SendStream(uint8_t command, std::span<const uint8_t> payload) {
    do {
        const size_t size = std::min(payload.size(), kMaxMessagePayload);
        Send(command, payload.first(size), 0);
        payload = payload.subspan(size);
    } while (!payload.empty());
}

}  // namespace mpm
