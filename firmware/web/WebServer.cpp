#include "firmware/web/WebServer.h"

#include <libwebsockets.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <thread>
#include <unordered_map>
#include <vector>

#include "firmware/web/HttpAnswer.h"
#include "firmware/web/PageFiles.h"
#include "firmware/web/Viewers.h"

namespace mpm::web {

namespace {

constexpr size_t kMostSockets = 100;        // WebSockets
constexpr unsigned kMostConnections = 256;  // of all kinds, with the server's own descriptors
constexpr size_t kLongestMessage = 2u << 20;
constexpr size_t kPiece = 64u << 10;
// The system would let the buffer of a page that does not read grow to several megabytes.
constexpr int kSendBuffer = 256 << 10;
constexpr const char *kEventsProtocol = "zel-lab", *kVncProtocol = "binary";
// A page that is loaded anew is back sooner.
constexpr std::chrono::seconds kHoldWithoutPages{5};
constexpr const char* kVncClientFolder = "/usr/share/novnc";

std::filesystem::path PageFolder() {
    return std::filesystem::read_symlink("/proc/self/exe").parent_path() / "lab";
}

// A header as it came; empty when it is missing or absurdly long.
std::string HeaderOf(lws* connection, lws_token_indexes header) {
    char text[1024];
    const int length = lws_hdr_copy(connection, text, sizeof text, header);
    return length > 0 ? std::string(text, size_t(length)) : "";
}

}  // namespace

void WebOptions::Check() const {
    LoopbackAddress::Parse(address);
    if (kvm.empty()) return;
    if (LoopbackAddress::Parse(kvm).port == 0) throw std::invalid_argument("\"" + kvm + "\" has no port");
}

class WebServer::Implementation {
  public:
    Implementation(const WebOptions& options, Firmware& firmware, Lab::Handle handle,
                   std::shared_ptr<Inbox> inbox);
    ~Implementation();
    std::string Url() const { return m_access->Url(); }

  private:
    struct Connection {
        HttpAnswer answer;
        bool isSocket = false;
        // Of a page.
        Lab::PageId page = 0;
        std::string message;  // what has come of it
        Outgoing outgoing;
        size_t sent = 0;
        bool paused = false;
    };
    struct Timer {
        lws_sorted_usec_list_t entry;
        Implementation* owner;
    };

    static int OnEvent(lws* connection, lws_callback_reasons reason, void*, void* data, size_t size);
    int Serve(lws* connection, lws_callback_reasons reason, const char* data, size_t size);
    int ServeFile(lws* connection);
    int Upgrade(lws* connection, std::string_view protocol);
    unsigned StatusOf(lws* connection, std::string_view protocol) const;
    int Receive(lws* connection, std::string_view data);
    int Write(lws* connection);
    void OpenSocket(lws* connection);
    void CloseSocket(lws* connection);
    void OnHeld(bool held);
    void PauseWhileBusy(lws* connection, Connection& state);
    void Listen(LoopbackAddress address);
    void WriteToPages();
    void StartTimer();
    void OnTimer();
    void Main();

    std::optional<Access> m_access;
    const PageFiles m_files;
    lws_protocols m_protocols[5]{};
    lws_context* m_context = nullptr;
    lws_vhost* m_host = nullptr;
    Timer m_timer{};
    std::unordered_map<lws*, Connection> m_connections;
    size_t m_sockets = 0;  // of pages and VNC clients
    bool m_timerRuns = false;
    std::chrono::steady_clock::time_point m_lastSocket;
    Viewers m_viewers{[this](bool held) { OnHeld(held); }};
    std::unique_ptr<Lab> m_lab;
    std::atomic<bool> m_stopping = false;
    std::thread m_thread;
};

WebServer::Implementation::Implementation(const WebOptions& options, Firmware& firmware, Lab::Handle handle,
                                          std::shared_ptr<Inbox> inbox)
    : m_files(PageFolder(), kVncClientFolder) {
    Listen(LoopbackAddress::Parse(options.address));
    Lab::Options lab{
        options.pc, options.log, options.dash, !options.kvm.empty() && m_files.HasVncClient(), {}};
    if (!options.kvm.empty()) {
        m_viewers.Serve(m_host, LoopbackAddress::Parse(options.kvm));
        lab.hold = [this](bool hold) { m_viewers.Hold(hold); };
    }
    m_lab = std::make_unique<Lab>(firmware, std::move(handle), std::move(inbox), std::move(lab),
                                  [this] { lws_cancel_service(m_context); });
    m_thread = std::thread(&Implementation::Main, this);
}

WebServer::Implementation::~Implementation() {
    if (m_thread.joinable()) {
        m_stopping = true;
        lws_cancel_service(m_context);
        m_thread.join();
    }
    // Its workers wake the context.
    m_lab.reset();
    lws_context_destroy(m_context);
}

void WebServer::Implementation::Listen(LoopbackAddress address) {
    lws_set_log_level(0, nullptr);
    m_protocols[0].name = "http";
    m_protocols[1].name = kEventsProtocol;
    m_protocols[2].name = kVncProtocol;
    m_protocols[3].name = Viewers::kProtocol;
    for (lws_protocols& protocol : std::span(m_protocols).first(4)) {
        protocol.callback = OnEvent;
        protocol.rx_buffer_size = kPiece;
    }
    lws_context_creation_info info{};
    info.protocols = m_protocols;
    info.iface = address.host.c_str();
    info.port = address.port;
    info.headers = SecurityHeaders();
    info.server_string = "mpmsim";
    info.options = LWS_SERVER_OPTION_EXPLICIT_VHOSTS | LWS_SERVER_OPTION_FAIL_UPON_UNABLE_TO_BIND |
                   LWS_SERVER_OPTION_VALIDATE_UTF8;
    info.fd_limit_per_thread = kMostConnections;
    info.max_http_header_data = 8192;
    info.max_http_header_pool = 64;
    info.timeout_secs = 20;
    info.keepalive_timeout = 20;
    info.pt_serv_buf_size = kPiece;
    info.user = this;
    info.uid = info.gid = -1;
    m_context = lws_create_context(&info);
    if (!m_context) throw std::runtime_error("there is no memory for the web server");
    m_host = lws_create_vhost(m_context, &info);
    if (!m_host) {
        lws_context_destroy(m_context);
        throw std::runtime_error("cannot listen on " + address.Text() + " for the page");
    }
    address.port = uint16_t(lws_get_vhost_listen_port(m_host));
    m_access.emplace(MakeToken(), address);
}

void WebServer::Implementation::Main() {
    while (!m_stopping && lws_service(m_context, 0) >= 0) {
    }
}

void WebServer::Implementation::StartTimer() {
    if (std::exchange(m_timerRuns, true)) return;
    m_timer.owner = this;
    lws_sul_schedule(
        m_context, 0, &m_timer.entry,
        [](lws_sorted_usec_list_t* entry) { reinterpret_cast<Timer*>(entry)->owner->OnTimer(); },
        std::chrono::microseconds(Lab::kPeriod).count());
}

void WebServer::Implementation::OnTimer() {
    m_timerRuns = false;
    const auto now = std::chrono::steady_clock::now();
    if (m_sockets > 0)
        m_lastSocket = now;
    else if (now - m_lastSocket > kHoldWithoutPages)
        m_viewers.Hold(false);
    if (m_sockets == 0 && !m_viewers.Holds()) return;
    m_lab->Tick();
    WriteToPages();
    StartTimer();
}

void WebServer::Implementation::WriteToPages() {
    for (const auto& [connection, state] : m_connections)
        if (state.page) lws_callback_on_writable(connection);
}

int WebServer::Implementation::OnEvent(lws* connection, lws_callback_reasons reason, void*, void* data,
                                       size_t size) {
    auto* const self = static_cast<Implementation*>(lws_context_user(lws_get_context(connection)));
    // Before the server is complete and after it has ended there is nothing to serve.
    if (!self->m_lab) return 0;
    try {
        return self->Serve(connection, reason, static_cast<const char*>(data), size);
    } catch (const std::exception&) {
        return -1;  // ends the connection
    }
}

int WebServer::Implementation::Serve(lws* connection, lws_callback_reasons reason, const char* data,
                                     size_t size) {
    switch (reason) {
        case LWS_CALLBACK_HTTP:
            return ServeFile(connection);
        case LWS_CALLBACK_HTTP_WRITEABLE:
            return m_connections[connection].answer.Continue(connection);
        case LWS_CALLBACK_HTTP_CONFIRM_UPGRADE:
            return Upgrade(connection, data);
        case LWS_CALLBACK_ESTABLISHED:
            OpenSocket(connection);
            return 0;
        case LWS_CALLBACK_RECEIVE:
        case LWS_CALLBACK_RAW_RX:
            return Receive(connection, {data, size});
        case LWS_CALLBACK_SERVER_WRITEABLE:
        case LWS_CALLBACK_RAW_WRITEABLE:
            return Write(connection);
        case LWS_CALLBACK_CLOSED:
            CloseSocket(connection);
            return 0;
        case LWS_CALLBACK_RAW_CLOSE:
            m_viewers.Close(connection);
            return 0;
        case LWS_CALLBACK_CLOSED_HTTP:
            m_connections.erase(connection);
            return 0;
        case LWS_CALLBACK_EVENT_WAIT_CANCELLED:
            m_lab->Deliver();
            WriteToPages();
            return 0;
        default:
            return 0;
    }
}

// What is not for the caller is answered like what does not exist.
int WebServer::Implementation::ServeFile(lws* connection) {
    HttpAnswer& answer = m_connections[connection].answer;
    char* path = nullptr;
    int length = 0;
    const int method = lws_http_get_uri_and_method(connection, &path, &length);
    const bool isRead = method == LWSHUMETH_GET || method == LWSHUMETH_HEAD;
    if (!m_access->IsOwnHost(HeaderOf(connection, WSI_TOKEN_HOST))) {
        answer = {403, "text/plain", ""};
    } else if (!isRead) {
        answer = {405, "text/plain", ""};
    } else {
        const auto name = m_access->Below({path, size_t(length)});
        const auto file = name ? m_files.Find(*name) : std::nullopt;
        answer = file ? HttpAnswer(200, file->type, ReadPageFile(file->path)) : HttpAnswer();
    }
    const int result = answer.Begin(connection, method == LWSHUMETH_GET);
    // The body of another request is not read.
    return isRead ? result : -1;
}

// 0: the connection becomes a WebSocket.
unsigned WebServer::Implementation::StatusOf(lws* connection, std::string_view protocol) const {
    if (protocol != "websocket") return 400;
    const auto name = m_access->Below(HeaderOf(connection, WSI_TOKEN_GET_URI));
    if (!m_access->IsOwnHost(HeaderOf(connection, WSI_TOKEN_HOST)) ||
        !m_access->IsOwnOrigin(HeaderOf(connection, WSI_TOKEN_ORIGIN)))
        return 403;
    if (name != "events" && !(name == "vnc" && m_viewers.Serves())) return 404;
    if (HeaderOf(connection, WSI_TOKEN_PROTOCOL) != (name == "vnc" ? kVncProtocol : kEventsProtocol))
        return 400;
    return m_sockets >= kMostSockets ? 503 : 0;
}

int WebServer::Implementation::Upgrade(lws* connection, std::string_view protocol) {
    const unsigned status = StatusOf(connection, protocol);
    if (status == 0) return 0;
    HttpAnswer(status, "text/plain", "").Begin(connection, false);
    return 1;
}

void WebServer::Implementation::OpenSocket(lws* connection) {
    ++m_sockets;
    setsockopt(lws_get_socket_fd(connection), SOL_SOCKET, SO_SNDBUF, &kSendBuffer, sizeof kSendBuffer);
    StartTimer();
    Connection& state = m_connections[connection];
    state.isSocket = true;
    if (std::string_view(lws_get_protocol(connection)->name) == kVncProtocol)
        m_viewers.Open(connection);
    else
        state.page = m_lab->Open();
}

void WebServer::Implementation::CloseSocket(lws* connection) {
    m_viewers.Close(connection);
    const auto found = m_connections.find(connection);
    if (found == m_connections.end()) return;
    if (found->second.isSocket) --m_sockets;
    if (found->second.page) m_lab->Close(found->second.page);
    m_connections.erase(found);
}

void WebServer::Implementation::OnHeld(bool held) {
    if (m_lab) m_lab->SetHeld(held);
}

int WebServer::Implementation::Receive(lws* connection, std::string_view data) {
    if (m_viewers.Takes(connection)) return m_viewers.Receive(connection, data);
    Connection& state = m_connections.at(connection);
    if (lws_frame_is_binary(connection)) return -1;
    if (state.message.size() + data.size() > kLongestMessage) {
        lws_close_reason(connection, LWS_CLOSE_STATUS_MESSAGE_TOO_LARGE, nullptr, 0);
        return -1;
    }
    state.message += data;
    if (!lws_is_final_fragment(connection) || lws_remaining_packet_payload(connection) > 0) return 0;
    m_lab->Receive(state.page, std::exchange(state.message, {}));
    PauseWhileBusy(connection, state);
    lws_callback_on_writable(connection);
    return 0;
}

// A page that asks faster than it takes its answers is not read from.
void WebServer::Implementation::PauseWhileBusy(lws* connection, Connection& state) {
    const bool busy = m_lab->IsBusy(state.page);
    if (busy != state.paused) lws_rx_flow_control(connection, busy ? 0 : 1);
    state.paused = busy;
}

int WebServer::Implementation::Write(lws* connection) {
    if (m_viewers.Takes(connection)) return m_viewers.Write(connection);
    Connection& state = m_connections.at(connection);
    if (!state.outgoing) {
        state.outgoing = m_lab->Next(state.page);
        state.sent = 0;
        PauseWhileBusy(connection, state);
    }
    if (!state.outgoing) return 0;
    const std::string& data = *state.outgoing.data;
    const size_t size = std::min(kPiece, data.size() - state.sent);
    const bool first = state.sent == 0, last = state.sent + size == data.size();
    std::vector<unsigned char> buffer(LWS_PRE + size);
    std::memcpy(buffer.data() + LWS_PRE, data.data() + state.sent, size);
    const int kind = state.outgoing.binary ? LWS_WRITE_BINARY : LWS_WRITE_TEXT;
    const auto flags = lws_write_protocol(lws_write_ws_flags(kind, first, last));
    if (lws_write(connection, buffer.data() + LWS_PRE, size, flags) < int(size)) return -1;
    state.sent += size;
    if (last) state.outgoing = {};
    lws_callback_on_writable(connection);
    return 0;
}

WebServer::WebServer(const WebOptions& options, Firmware& firmware, Lab::Handle handle,
                     std::shared_ptr<Inbox> inbox)
    : m_implementation(
          std::make_unique<Implementation>(options, firmware, std::move(handle), std::move(inbox))) {}
WebServer::~WebServer() = default;

std::string WebServer::Url() const {
    return m_implementation->Url();
}

}  // namespace mpm::web
