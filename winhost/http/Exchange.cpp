#include "winhost/http/Exchange.h"

#include <sys/socket.h>

#include <cerrno>
#include <csignal>
#include <memory>
#include <mutex>
#include <string_view>
#include <vector>

#include <winhttp.h>

#include "winhost/crypt/CertificateStore.h"
#include "winhost/http/AwaitDescriptors.h"
#include "winhost/pc/Pc.h"

namespace winhost {
namespace {

using Url = std::unique_ptr<CURLU, decltype(&curl_url_cleanup)>;

void StartCurl() {
    static std::once_flag started;
    std::call_once(started, [] {
        // OpenSSL writes to a connection that has ended without the flag that prevents the signal.
        std::signal(SIGPIPE, SIG_IGN);
        curl_global_init(CURL_GLOBAL_DEFAULT);
    });
}

// What curl waits for. Its own look-up of a name is among it.
std::vector<pollfd> DescriptorsOf(CURLM* multi) {
    fd_set reads, writes, errors;
    FD_ZERO(&reads);
    FD_ZERO(&writes);
    FD_ZERO(&errors);
    int last = -1;
    curl_multi_fdset(multi, &reads, &writes, &errors, &last);
    std::vector<pollfd> descriptors;
    for (int file = 0; file <= last; ++file) {
        const int events = (FD_ISSET(file, &reads) ? POLLIN : 0) | (FD_ISSET(file, &writes) ? POLLOUT : 0);
        if (events) descriptors.push_back({file, static_cast<short>(events), 0});
    }
    return descriptors;
}

bool IsConnected(curl_socket_t socket) {
    sockaddr_storage peer{};
    socklen_t size = sizeof peer;
    return socket != CURL_SOCKET_BAD && getpeername(socket, reinterpret_cast<sockaddr*>(&peer), &size) == 0;
}

// Whether the server has ended the connection, rather than refused the handshake.
bool NamesAnEnd(std::string_view text) {
    for (const char* end : {"unexpected eof", "SSL_ERROR_SYSCALL", "onnection reset", "is not connected",
                            "SSL_ERROR_ZERO_RETURN"})
        if (text.find(end) != std::string_view::npos) return true;
    return false;
}

}  // namespace

HttpExchange::~HttpExchange() {
    if (m_multi && m_easy) curl_multi_remove_handle(m_multi, m_easy);
    if (m_easy) curl_easy_cleanup(m_easy);
    if (m_multi) curl_multi_cleanup(m_multi);
}

bool HttpExchange::IsHost(const std::string& host) {
    StartCurl();
    const Url url(curl_url(), curl_url_cleanup);
    return url && !host.empty() && curl_url_set(url.get(), CURLUPART_HOST, host.c_str(), 0) == CURLUE_OK;
}

curl_socket_t HttpExchange::OpenSocket(void* self, curlsocktype, curl_sockaddr* address) {
    auto& exchange = *static_cast<HttpExchange*>(self);
    exchange.m_socket = socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
    exchange.EnterPhase(Phase::Connect);
    return exchange.m_socket;
}

uint32_t HttpExchange::TimeoutOf(Phase phase) const {
    return phase == Phase::Resolve   ? m_timeouts.resolve
           : phase == Phase::Connect ? m_timeouts.connect
                                     : m_timeouts.receive;
}

void HttpExchange::EnterPhase(Phase phase) {
    m_phase = phase;
    const uint32_t timeout = TimeoutOf(phase);
    m_deadline = timeout ? Clock::Instance().DeadlineIn(timeout) : Clock::kNever;
}

void HttpExchange::FollowPhase() {
    if (m_phase == Phase::Connect && IsConnected(m_socket)) EnterPhase(Phase::Handshake);
}

void HttpExchange::TrustRootStore() {
    for (const std::string& certificate : Pc::Instance().Get(&PcDescription::rootCertificates))
        m_rootCertificates += PemOf(certificate) + "\n";
    curl_blob blob{m_rootCertificates.data(), m_rootCertificates.size(), CURL_BLOB_NOCOPY};
    curl_easy_setopt(m_easy, CURLOPT_CAPATH, nullptr);
    curl_easy_setopt(m_easy, CURLOPT_CAINFO, nullptr);
    if (!m_rootCertificates.empty()) curl_easy_setopt(m_easy, CURLOPT_CAINFO_BLOB, &blob);
}

bool HttpExchange::SetUp(const std::string& host, uint16_t port, bool secure) {
    StartCurl();
    m_multi = curl_multi_init();
    m_easy = curl_easy_init();
    if (!m_multi || !m_easy) return false;
    const std::string url =
        (secure ? "https://" : "http://") + host + (port ? ":" + std::to_string(port) : "");
    curl_easy_setopt(m_easy, CURLOPT_URL, url.c_str());
    curl_easy_setopt(m_easy, CURLOPT_CONNECT_ONLY, 1L);
    curl_easy_setopt(m_easy, CURLOPT_NOSIGNAL, 1L);
    // A look-up that takes too long is left behind.
    curl_easy_setopt(m_easy, CURLOPT_QUICK_EXIT, 1L);
    curl_easy_setopt(m_easy, CURLOPT_PROXY, "");
    curl_easy_setopt(m_easy, CURLOPT_ERRORBUFFER, m_errorText);
    curl_easy_setopt(m_easy, CURLOPT_SSL_VERIFYPEER, m_checks.authorityAndDate ? 1L : 0L);
    curl_easy_setopt(m_easy, CURLOPT_SSL_VERIFYHOST, m_checks.name ? 2L : 0L);
    curl_easy_setopt(m_easy, CURLOPT_SSL_ENABLE_ALPN, 0L);
    // Version 1.3 has tickets behind the handshake. Nothing reads them here, and a connection that is closed
    // with unread bytes is reset, whatever is still on its way.
    constexpr long kOnlyTls12 = long{CURL_SSLVERSION_TLSv1_2} | long{CURL_SSLVERSION_MAX_TLSv1_2};
    curl_easy_setopt(m_easy, CURLOPT_SSLVERSION, kOnlyTls12);
    curl_easy_setopt(m_easy, CURLOPT_OPENSOCKETFUNCTION, &HttpExchange::OpenSocket);
    curl_easy_setopt(m_easy, CURLOPT_OPENSOCKETDATA, this);
    if (m_checks.authorityAndDate) TrustRootStore();
    return curl_multi_add_handle(m_multi, m_easy) == CURLM_OK;
}

uint32_t HttpExchange::Connect(const std::string& host, uint16_t port, bool secure) {
    if (!SetUp(host, port, secure)) return ERROR_WINHTTP_INTERNAL_ERROR;
    EnterPhase(Phase::Resolve);
    for (;;) {
        int running = 0, left = 0;
        if (curl_multi_perform(m_multi, &running) != CURLM_OK) return ERROR_WINHTTP_INTERNAL_ERROR;
        if (const CURLMsg* message = curl_multi_info_read(m_multi, &left)) {
            curl_easy_getinfo(m_easy, CURLINFO_ACTIVESOCKET, &m_socket);
            return message->data.result == CURLE_OK ? 0 : ErrorOf(message->data.result);
        }
        FollowPhase();
        // curl has times of its own at which it wants to be called, such as for the next address of a host.
        long milliseconds = -1;
        curl_multi_timeout(m_multi, &milliseconds);
        if (!AwaitDescriptors(DescriptorsOf(m_multi), m_deadline, milliseconds)) return ERROR_WINHTTP_TIMEOUT;
    }
}

uint32_t HttpExchange::Send(const std::string& bytes) {
    const uint32_t timeout = m_timeouts.send;
    const Clock::Deadline deadline = timeout ? Clock::Instance().DeadlineIn(timeout) : Clock::kNever;
    for (size_t sent = 0; sent < bytes.size();) {
        size_t count = 0;
        const CURLcode code = curl_easy_send(m_easy, bytes.data() + sent, bytes.size() - sent, &count);
        sent += count;
        if (code == CURLE_AGAIN) {
            if (!AwaitDescriptors({{m_socket, POLLOUT, 0}}, deadline, -1)) return ERROR_WINHTTP_TIMEOUT;
        } else if (code != CURLE_OK) {
            return ERROR_WINHTTP_CONNECTION_ERROR;
        }
    }
    return 0;
}

uint32_t HttpExchange::ErrorOf(CURLcode code) const {
    switch (code) {
        case CURLE_COULDNT_RESOLVE_HOST:
            return ERROR_WINHTTP_NAME_NOT_RESOLVED;
        case CURLE_COULDNT_CONNECT: {
            long error = 0;
            curl_easy_getinfo(m_easy, CURLINFO_OS_ERRNO, &error);
            return error == ECONNRESET ? ERROR_WINHTTP_CONNECTION_ERROR : ERROR_WINHTTP_CANNOT_CONNECT;
        }
        case CURLE_OPERATION_TIMEDOUT:
            return ERROR_WINHTTP_TIMEOUT;
        case CURLE_PEER_FAILED_VERIFICATION:
        case CURLE_SSL_CACERT_BADFILE:
            return ERROR_WINHTTP_SECURE_FAILURE;
        case CURLE_SSL_CONNECT_ERROR:
            return NamesAnEnd(m_errorText) ? ERROR_WINHTTP_CONNECTION_ERROR : ERROR_WINHTTP_SECURE_FAILURE;
        case CURLE_OUT_OF_MEMORY:
            return ERROR_WINHTTP_INTERNAL_ERROR;
        default:
            return ERROR_WINHTTP_CONNECTION_ERROR;
    }
}

}  // namespace winhost
