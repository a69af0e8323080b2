#include "winhost/control/ControlServer.h"

#include <json/writer.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <system_error>

#include "winhost/control/Commands.h"

namespace winhost {
namespace {

constexpr int kMaxClients = 64;
constexpr size_t kLongestLine = 1 << 20;
constexpr std::chrono::milliseconds kDescriptorsTakenPause(10);
// Ends with the process even when a client no longer reads.
constexpr std::chrono::seconds kPatienceAtExit(5);

[[noreturn]] void Throw(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), "controlSocket: " + what);
}

bool WriteAll(int descriptor, const std::string& text) {
    for (size_t done = 0; done < text.size();) {
        const ssize_t sent = send(descriptor, text.data() + done, text.size() - done, MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) continue;
        if (sent <= 0) return false;
        done += static_cast<size_t>(sent);
    }
    return true;
}

std::string ToLine(const Json::Value& json) {
    Json::StreamWriterBuilder compact;
    compact["indentation"] = "";
    return Json::writeString(compact, json) + "\n";
}

}  // namespace

// The process has to send the answers it owes before it goes: that of the stop that ends it among them.
struct ControlServer::AtExit {
    ~AtExit() {
        ControlServer::Instance().Stop();
        ControlServer::Instance().AwaitAnswers();
    }
};

// Never destroyed, as its clients' threads aren't joined.
ControlServer& ControlServer::Instance() {
    static ControlServer& server = *new ControlServer;
    return server;
}

void ControlServer::Serve(const std::string& path) {
    Stop();
    if (!path.empty()) Listen(path);
}

void ControlServer::Listen(const std::string& path) {
    static AtExit atExit;
    std::lock_guard serving(m_serving);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    // Renamed when it listens, so that whoever sees the file can connect.
    const std::string unfinished = path + ".new";
    if (unfinished.size() >= sizeof(address.sun_path)) {
        errno = ENAMETOOLONG;
        Throw(path);
    }
    std::strcpy(address.sun_path, unfinished.c_str());
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (listener < 0) Throw("no socket");
    unlink(unfinished.c_str());
    if (bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
        chmod(unfinished.c_str(), S_IRUSR | S_IWUSR) != 0 || listen(listener, kMaxClients) != 0 ||
        std::rename(unfinished.c_str(), path.c_str()) != 0) {
        const int error = errno;
        close(listener);
        errno = error;
        Throw(path);
    }
    m_path = path;
    m_listener = listener;
    m_acceptor = std::thread(&ControlServer::AcceptClients, this, listener);
}

void ControlServer::Stop() {
    std::lock_guard serving(m_serving);
    if (m_listener < 0) return;
    shutdown(m_listener, SHUT_RDWR);
    m_acceptor.join();
    close(m_listener);
    m_listener = -1;
    unlink(m_path.c_str());
}

void ControlServer::AwaitAnswers() {
    std::unique_lock lock(m_mutex);
    m_changed.wait_for(lock, kPatienceAtExit, [this] { return m_answering == 0; });
}

void ControlServer::AcceptClients(int listener) {
    while (true) {
        const int client = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (client < 0 && errno == EINVAL) return;  // Stop has shut it down
        if (client < 0) {
            if (errno == EMFILE || errno == ENFILE) std::this_thread::sleep_for(kDescriptorsTakenPause);
            continue;
        }
        std::lock_guard lock(m_mutex);
        if (m_clients == kMaxClients) {
            close(client);
            continue;
        }
        ++m_clients;
        std::thread(&ControlServer::Talk, this, client).detach();
    }
}

void ControlServer::Talk(int client) {
    std::string text;
    char block[4096];
    bool open = true;
    while (open) {
        const ssize_t received = recv(client, block, sizeof(block), 0);
        if (received < 0 && errno == EINTR) continue;
        if (received <= 0) break;
        text.append(block, static_cast<size_t>(received));
        for (size_t end; open && (end = text.find('\n')) != std::string::npos; text.erase(0, end + 1)) {
            open = AnswerLine(client, text.substr(0, end));
        }
        // Not a line: refused as one, and nothing after it can be understood.
        if (text.size() > kLongestLine) {
            AnswerLine(client, "");
            break;
        }
    }
    close(client);
    std::lock_guard lock(m_mutex);
    --m_clients;
    m_changed.notify_all();
}

bool ControlServer::AnswerLine(int client, const std::string& line) {
    {
        std::lock_guard lock(m_mutex);
        ++m_answering;
    }
    const bool sent = WriteAll(client, ToLine(Answer(line)));
    std::lock_guard lock(m_mutex);
    --m_answering;
    m_changed.notify_all();
    return sent;
}

}  // namespace winhost
