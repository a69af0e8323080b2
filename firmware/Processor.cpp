#include "firmware/Processor.h"

#include <algorithm>
#include <cstring>
#include <tuple>

#include "firmware/Answers.h"
#include "firmware/Catalogue.h"
#include "firmware/Fields.h"
#include "firmware/Report.h"

namespace mpm {

namespace {

constexpr uint32_t kInvalidParameter = 87;
constexpr uint32_t kInsufficientBuffer = 122;

template <class Record>
Record As(std::span<const uint8_t> bytes) {
    Record record;
    std::memcpy(&record, bytes.data(), sizeof record);
    return record;
}

auto DashPeerOf(const Settings& settings) {
    return std::tie(settings.Dash, settings.DashServer, settings.DashPause);
}
auto KvmPeerOf(const Settings& settings) {
    return std::tie(settings.Kvm, settings.KvmServer);
}

}  // namespace

Processor::Processor(EventLoop& loop, RequestLog& log, Settings settings)
    : m_loop(loop),
      m_log(log),
      m_settings(std::move(settings)),
      m_link(loop, {.request = [this](const LinkRequest& request) { OnRequest(request); },
                    .cancelled =
                        [this](uint64_t connection, uint32_t id) {
                            Forget([=](const Pending& pending) {
                                return pending.request.connection == connection && pending.request.id == id;
                            });
                        },
                    .closed =
                        [this](uint64_t connection) {
                            Forget([=](const Pending& pending) {
                                return pending.request.connection == connection;
                            });
                        },
                    .listening = [this](bool listening) { Listening(listening); },
                    .complaint = [this](const std::string& why) { Note("fault", why); },
                    .drained = [this] { HostHasRead(); }}) {
    m_settings.Check();
    loop.Run([this] { AdoptScreen(); });
}

Processor::~Processor() {
    m_observer = nullptr;
    m_takeDash = nullptr;
    m_link.Close();  // while what its events touch is still there
}

void Processor::Listen(const std::string& address) {
    m_address = m_link.Listen(address);
}

void Processor::Vanish() {
    m_link.Close();
    Retire(m_dash);
    EndKvm();
    m_dashEnded = false;
    m_hostUp = false;
    Note("vanished");
}

void Processor::ComeBack() {
    Listen(m_address);
    Note("back", m_address);
}

void Processor::Adopt(Settings settings) {
    settings.Check();
    const bool keepsDash = DashPeerOf(settings) == DashPeerOf(m_settings);
    const bool keepsKvm = KvmPeerOf(settings) == KvmPeerOf(m_settings);
    m_settings = std::move(settings);
    // An open connection gets its new peer with its next packet.
    if (!keepsDash) Retire(m_dash);
    if (!keepsKvm) Retire(m_kvm);
    AdoptScreen();
}

void Processor::OnRequest(const LinkRequest& request) {
    const MailboxRequest* operation = FindRequest(request.code, request.input.size());
    if (!operation) {
        const MailboxRequest* known = FirstRequest(request.code);
        Record(request, known ? known->name : CodeText(request.code).c_str(),
               known ? "wrong size of " + std::to_string(request.input.size()) + " bytes" : "unknown code");
        m_link.Answer(request, kInvalidParameter, {});
        return;
    }
    if (request.room < operation->output.minSize) {
        Record(request, operation->name, "room for only " + std::to_string(request.room) + " bytes");
        m_link.Answer(request, kInsufficientBuffer, {});
        return;
    }
    Record(request, operation->name, {});
    const Fault fault = m_faults.Take(operation->name);
    if (fault.held || fault.delay.count() > 0)
        Postpone(request, *operation, fault);
    else
        Complete(request, *operation, fault);
}

void Processor::Record(const LinkRequest& request, const char* name, const std::string& fault) {
    const bool quiet = fault.empty() && IsQuiet(request.code);
    const bool keep = m_settings.KeepRequests && !quiet;
    if (m_observer && !quiet) Notify(Event::Kind::Request, name, request.code, request.input, fault);
    mpm::Request kept{name, request.code, {}, std::chrono::system_clock::now(), fault};
    if (keep) kept.data.assign(request.input.begin(), request.input.end());
    m_log.Add(std::move(kept), keep);
}

void Processor::Postpone(const LinkRequest& request, const MailboxRequest& operation, const Fault& fault) {
    Pending& pending = m_pending.emplace_back(
        Pending{request, {request.input.begin(), request.input.end()}, &operation, fault, 0});
    pending.request.input = pending.input;
    if (fault.held) return Note("held", operation.name);
    pending.timer = m_loop.After(fault.delay, [this, at = std::prev(m_pending.end())] {
        const Pending due = std::move(*at);
        m_pending.erase(at);
        Complete(due.request, *due.operation, due.fault);
    });
    Note("delayed", std::string(operation.name) + " by " + std::to_string(fault.delay.count()) + " ms");
}

void Processor::Release(const std::vector<std::string>& names) {
    std::list<Pending> released;
    for (auto next = m_pending.begin(); next != m_pending.end();) {
        const auto at = next++;
        if (at->timer == 0 && std::count(names.begin(), names.end(), at->operation->name))
            released.splice(released.end(), m_pending, at);
    }
    for (const Pending& pending : released) {
        Note("released", pending.operation->name);
        Complete(pending.request, *pending.operation, pending.fault);
    }
}

void Processor::ReleaseAll() {
    std::vector<std::string> names;
    for (const MailboxRequest& operation : kMailboxRequests)
        names.push_back(operation.name);
    Release(names);
}

void Processor::Forget(const std::function<bool(const Pending&)>& which) {
    m_pending.remove_if([&](const Pending& pending) {
        if (!which(pending)) return false;
        if (pending.timer) m_loop.Cancel(pending.timer);
        Note("cancelled", pending.operation->name);
        return true;
    });
}

void Processor::Complete(const LinkRequest& request, const MailboxRequest& operation, const Fault& fault) {
    if (fault.error) {
        Note("refused", std::string(operation.name) + " with " + std::to_string(*fault.error));
        m_link.Answer(request, *fault.error, {});
        return;
    }
    const auto resized = [&](std::vector<uint8_t> output) {
        if (fault.answerSize) output.resize(std::min<size_t>(*fault.answerSize, mpmlink::kMaxPayload));
        return output;
    };
    if (request.code == MailboxCode::WriteDASHPacket)
        return TakeStream(request, MPM_ZEL_CMD_DASH_DATA, resized({}));
    if (request.code == MailboxCode::WriteKVMPacket)
        return TakeStream(request, MPM_ZEL_CMD_KVM_DATA, resized({}));
    const std::vector<uint8_t> output = resized(AnswerTo(operation.code, m_settings, m_hostUp));
    // What follows from a record is seen by the host only after its request has been answered.
    m_link.Answer(request, 0, output);
    StoreRecord(operation, request.input);
    if (m_screen && request.code == MailboxCode::WriteEncodedBuffer) m_screen->TakeChunk(request.input);
}

void Processor::StoreRecord(const MailboxRequest& operation, std::span<const uint8_t> input) {
    if (operation.input.fields.empty()) return;
    // Of an encoded frame the head is enough.
    m_host[operation.name].assign(input.begin(),
                                  input.begin() + ptrdiff_t(std::min(input.size(), operation.input.minSize)));
    switch (operation.code) {
        case MailboxCode::WriteZELStatus:
            m_hostUp = As<ZELStatusRecord>(input).state != 2;
            break;
        case MailboxCode::WriteIPCompleteInformation:
            OnConnection(As<IPCompleteInfo>(input));
            break;
        case MailboxCode::WriteDisplayConfig:
            if (const auto config = As<DisplayConfigRecord>(input); m_screen)
                m_screen->Configure(config.width, config.height);
            break;
        case MailboxCode::WriteCloseSocketcmd:
            OnConnectionClosed(As<CloseSocketRecord>(input).port);
            break;
        default:
            break;
    }
}

Json::Value Processor::Host() const {
    Json::Value host(Json::objectValue);
    host["up"] = m_hostUp;
    host["listening"] = HostListening();
    for (const auto& [name, record] : m_host)
        host[name] = Decode(FindRequest(name)->input.fields, record, SecretsOf(m_settings, name));
    return host;
}

void Processor::Send(uint8_t command, std::span<const uint8_t> payload, uint8_t trailer) {
    if (command == MPM_ZEL_CMD_WEBUI_CLOSE_SOCKET) m_dashEnded = true;
    // The host has to have the configuration before it opens its port.
    if (command == MPM_ZEL_CMD_KVM_ENABLE_STATUS && m_screen) m_screen->Ask();
    const uint8_t tail[kMailboxTrailerSize] = {command, trailer};
    if (m_observer && !IsQuiet(command))
        Notify(Event::Kind::Message, CommandName(command), command, payload, {});
    m_link.Send(payload, tail);
}

void Processor::SendRaw(std::span<const uint8_t> message) {
    if (m_observer) Notify(Event::Kind::Message, "raw", 0, message, {});
    m_link.Send(message, {});
}

void Processor::Listening(bool listening) {
    {
        std::lock_guard lock(m_listeningMutex);
        m_listening = listening;
    }
    m_listeningChanged.notify_all();
    if (!listening) {
        // No connection outlives the host that forwards it.
        AnswerPaced();
        Retire(m_dash);
        EndKvm();
        m_dashEnded = false;
    }
    Note(listening ? "listening" : "gone");
}

bool Processor::HostListening() const {
    std::lock_guard lock(m_listeningMutex);
    return m_listening;
}

bool Processor::AwaitHostListening(std::chrono::milliseconds patience) const {
    std::unique_lock lock(m_listeningMutex);
    return m_listeningChanged.wait_for(lock, patience, [this] { return m_listening; });
}

void Processor::OnDash(std::function<void(std::span<const uint8_t>)> take) {
    m_takeDash = take ? std::make_shared<const decltype(take)>(std::move(take)) : nullptr;
}

void Processor::Observe(std::function<void(const Event&)> observer) {
    m_observer = observer ? std::make_shared<const decltype(observer)>(std::move(observer)) : nullptr;
}

void Processor::Notify(Event::Kind kind, const std::string& name, uint32_t code,
                       std::span<const uint8_t> data, const std::string& text) {
    const auto observer = m_observer;
    (*observer)({kind, name, code, data, text, std::chrono::system_clock::now()});
}

void Processor::Note(const std::string& what, const std::string& text) {
    if (m_observer) Notify(Event::Kind::Note, what, 0, {}, text);
}

}  // namespace mpm
