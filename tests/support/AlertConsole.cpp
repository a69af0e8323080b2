#include "tests/support/AlertConsole.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <stdexcept>
#include <utility>

#include "firmware/dash/Certificate.h"

namespace {

constexpr size_t kSlowPiece = 100;
constexpr std::chrono::milliseconds kSlowPause{2};

sockaddr_in Loopback(uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
}

void MakeExpired(X509* x509) {
    constexpr long kDay = 24L * 60 * 60;
    X509_gmtime_adj(X509_getm_notBefore(x509), -20 * kDay);
    X509_gmtime_adj(X509_getm_notAfter(x509), -10 * kDay);
}

void RenameHost(X509* x509) {
    X509_EXTENSION_free(X509_delete_ext(x509, X509_get_ext_by_NID(x509, NID_subject_alt_name, -1)));
    X509V3_CTX context;
    X509V3_set_ctx(&context, x509, x509, nullptr, nullptr, 0);
    X509_EXTENSION* const name =
        X509V3_EXT_conf_nid(nullptr, &context, NID_subject_alt_name, "DNS:other.example");
    X509_add_ext(x509, name, -1);
    X509_EXTENSION_free(name);
}

size_t BodySize(const std::string& head) {
    constexpr char kField[] = "\r\nContent-Length: ";
    const size_t field = head.find(kField);
    return field == std::string::npos ? 0 : std::stoul(head.substr(field + sizeof kField - 1));
}

bool IsWhole(const std::string& request) {
    const size_t end = request.find("\r\n\r\n");
    return end != std::string::npos && request.size() >= end + 4 + BodySize(request.substr(0, end));
}

}  // namespace

// The bytes of one connection, with TLS or without. Every wait ends with the console.
class AlertConsole::Stream {
  public:
    Stream(const AlertConsole& console, int connection, SSL_CTX* tls)
        : m_console(console), m_connection(connection) {
        if (!tls) return;
        m_tls.reset(SSL_new(tls));
        SSL_set_fd(m_tls.get(), connection);
    }

    // False when the handshake fails.
    bool Begin() { return !m_tls || (m_console.AwaitInput(m_connection) && SSL_accept(m_tls.get()) == 1); }
    // Empty at the end.
    std::string Read(size_t size) {
        std::string bytes(size, '\0');
        if (!(m_tls && SSL_pending(m_tls.get()) > 0) && !m_console.AwaitInput(m_connection)) return {};
        const ssize_t count = m_tls ? SSL_read(m_tls.get(), bytes.data(), static_cast<int>(size))
                                    : recv(m_connection, bytes.data(), size, 0);
        bytes.resize(static_cast<size_t>(std::max<ssize_t>(count, 0)));
        return bytes;
    }
    void Write(const std::string& bytes) {
        if (m_tls) {
            SSL_write(m_tls.get(), bytes.data(), static_cast<int>(bytes.size()));
        } else {
            send(m_connection, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        }
    }

  private:
    const AlertConsole& m_console;
    const int m_connection;
    testbed::TlsPointer m_tls;
};

AlertConsole::AlertConsole(Certificate certificate, Behaviour behaviour, std::string redirectTo)
    : m_behaviour(behaviour), m_redirectTo(std::move(redirectTo)), m_stop(eventfd(0, EFD_CLOEXEC)) {
    if (certificate != Certificate::None) PrepareTls(certificate);
    Listen();
    if (m_behaviour == Behaviour::IsFull) {
        FillQueue();
    } else {
        m_thread = std::thread([this] { Run(); });
    }
}

AlertConsole::~AlertConsole() {
    eventfd_write(m_stop.Get(), 1);
    if (m_thread.joinable()) m_thread.join();
}

void AlertConsole::PrepareTls(Certificate certificate) {
    // OpenSSL writes to a client that has gone without the flag that prevents the signal.
    std::signal(SIGPIPE, SIG_IGN);
    const mpm::Certificate made = mpm::MakeCertificate();
    if (certificate == Certificate::Expired) MakeExpired(made.certificate.get());
    if (certificate == Certificate::WrongName) RenameHost(made.certificate.get());
    X509_sign(made.certificate.get(), made.key.get(), EVP_sha256());
    m_certificateText = mpm::PemOf(made);
    m_tls = std::shared_ptr<SSL_CTX>(mpm::MakeServerContext(made).release(), SSL_CTX_free);
}

void AlertConsole::Listen() {
    m_listener = testbed::Descriptor(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address = Loopback(0);
    socklen_t size = sizeof address;
    // A connection has hardly any room for what is not read.
    const int room = 4096;
    if (m_behaviour == Behaviour::IsSilent || m_behaviour == Behaviour::Resets)
        setsockopt(m_listener.Get(), SOL_SOCKET, SO_RCVBUF, &room, sizeof room);
    const int backlog = m_behaviour == Behaviour::IsFull ? 0 : 512;
    if (bind(m_listener.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        listen(m_listener.Get(), backlog) != 0 ||
        getsockname(m_listener.Get(), reinterpret_cast<sockaddr*>(&address), &size) != 0)
        throw std::runtime_error("the console cannot listen");
    m_port = ntohs(address.sin_port);
}

// A queue without room leaves further connections without an answer.
void AlertConsole::FillQueue() {
    const sockaddr_in address = Loopback(m_port);
    for (int i = 0; i < 4; ++i) {
        m_fillers.emplace_back(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        const auto* const name = reinterpret_cast<const sockaddr*>(&address);
        if (connect(m_fillers.back().Get(), name, sizeof address) != 0 && errno != EINPROGRESS)
            throw std::runtime_error("the console's queue cannot be filled");
    }
}

bool AlertConsole::AwaitInput(int descriptor) const {
    pollfd polled[] = {{descriptor, POLLIN, 0}, {m_stop.Get(), POLLIN, 0}};
    while (poll(polled, std::size(polled), -1) < 0 && errno == EINTR) {
    }
    return polled[1].revents == 0;
}

void AlertConsole::Run() {
    while (AwaitInput(m_listener.Get())) {
        const testbed::Descriptor connection(accept4(m_listener.Get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (!connection) continue;
        // A silent one shows the connection when the peer has begun to speak.
        if (m_behaviour == Behaviour::IsSilent && !AwaitInput(connection.Get())) return;
        {
            const std::lock_guard lock(m_mutex);
            ++m_connections;
        }
        m_changed.notify_all();
        Serve(connection.Get());
    }
}

void AlertConsole::Serve(int connection) {
    if (m_behaviour == Behaviour::Resets) {
        const linger now{1, 0};
        setsockopt(connection, SOL_SOCKET, SO_LINGER, &now, sizeof now);
        return;
    }
    if (m_behaviour == Behaviour::IsSilent) {
        AwaitInput(m_stop.Get());
        return;
    }
    Stream stream(*this, connection, static_cast<SSL_CTX*>(m_tls.get()));
    if (stream.Begin()) Converse(stream);
}

void AlertConsole::Converse(Stream& stream) {
    const bool slow = m_behaviour == Behaviour::IsSlow;
    std::string request;
    while (!IsWhole(request)) {
        if (slow) std::this_thread::sleep_for(kSlowPause);
        const std::string bytes = stream.Read(slow ? kSlowPiece : size_t{64} * 1024);
        if (bytes.empty()) break;
        request += bytes;
    }
    if (request.empty()) return;
    {
        const std::lock_guard lock(m_mutex);
        m_requests.push_back(std::move(request));
    }
    m_changed.notify_all();
    stream.Write(Answer());
}

std::string AlertConsole::Answer() const {
    const std::string end = "Content-Length: 0\r\n\r\n";
    if (m_behaviour != Behaviour::Redirects) return "HTTP/1.1 200 OK\r\n" + end;
    return "HTTP/1.1 302 Found\r\nLocation: " + m_redirectTo + "\r\n" + end;
}

std::vector<std::string> AlertConsole::Requests() const {
    const std::lock_guard lock(m_mutex);
    return m_requests;
}

bool AlertConsole::AwaitRequests(size_t count, std::chrono::milliseconds patience) const {
    std::unique_lock lock(m_mutex);
    return m_changed.wait_for(lock, patience, [&] { return m_requests.size() >= count; });
}

bool AlertConsole::AwaitConnections(size_t count, std::chrono::milliseconds patience) const {
    std::unique_lock lock(m_mutex);
    return m_changed.wait_for(lock, patience, [&] { return m_connections >= count; });
}

std::string AlertConsole::BodyOf(const std::string& request) {
    const size_t end = request.find("\r\n\r\n");
    return end == std::string::npos ? "" : request.substr(end + 4);
}

std::string AlertConsole::HeadOf(const std::string& request) {
    return request.substr(0, request.find("\r\n\r\n"));
}
