#include "testbed/ControlSocket.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <set>
#include <stdexcept>
#include <utility>

#include "testbed/Json.h"
#include "testbed/Sockets.h"

namespace testbed {
namespace {

constexpr size_t kMaxClients = 64;
constexpr std::chrono::milliseconds kDescriptorsTakenPause(10);
// Ends also when a client no longer reads.
constexpr std::chrono::seconds kPatienceAtEnd(5);

[[noreturn]] void Fail(const std::string& path, const std::string& why) {
    throw std::runtime_error("control socket " + path + ": " + why);
}

bool SendLine(const Descriptor& socket, const Json::Value& json) {
    const std::string line = Compact(json) + "\n";
    return SendAll(socket, line.data(), line.size());
}

// Gives the socket its name, which a process that has ended may have left behind, but not one that runs.
bool Rename(const std::string& unfinished, const std::string& path) {
    if (IsAbandonedSocket(path)) unlink(path.c_str());
    return link(unfinished.c_str(), path.c_str()) == 0;
}

// The socket has another name until it listens, so that a client that finds the file can connect.
Descriptor Listen(const std::string& path) {
    const std::string unfinished = path + ".new";
    Descriptor listener = ListenUnix(unfinished, kMaxClients);
    const bool named =
        listener && chmod(unfinished.c_str(), S_IRUSR | S_IWUSR) == 0 && Rename(unfinished, path);
    const int error = errno;
    if (listener) unlink(unfinished.c_str());
    struct stat there;
    const bool isSocket = lstat(path.c_str(), &there) == 0 && S_ISSOCK(there.st_mode);
    if (named) return listener;
    Fail(path, isSocket && (error == EEXIST || error == EADDRINUSE) ? "another process listens there"
                                                                    : std::strerror(error));
}

// The lines that come from a connection.
class Lines {
  public:
    Lines(const Descriptor& socket, size_t longest) : m_socket(socket), m_longest(longest) {}

    // False at the end of the connection. What grows too long for a line comes as an empty one, and is the
    // last.
    bool Next(std::string& line) {
        size_t end;
        while ((end = m_text.find('\n', m_searched)) == std::string::npos) {
            m_searched = m_text.size();
            if (m_text.size() > m_longest) {
                line.clear();
                m_text.clear();
                return !std::exchange(m_ended, true);
            }
            char block[65536];
            const ssize_t received = m_ended ? 0 : recv(m_socket.Get(), block, sizeof block, 0);
            if (received < 0 && errno == EINTR) continue;
            if (received <= 0) return false;
            m_text.append(block, static_cast<size_t>(received));
        }
        line = m_text.substr(0, end);
        m_text.erase(0, end + 1);
        m_searched = 0;
        return true;
    }

  private:
    const Descriptor& m_socket;
    const size_t m_longest;
    std::string m_text;
    size_t m_searched = 0;
    bool m_ended = false;
};

}  // namespace

struct ControlSocket::Clients {
    size_t longestLine;
    Handler handler;

    std::mutex mutex;
    std::condition_variable changed;
    std::set<int> sockets;
    size_t answering = 0;  // requests that have come and whose answer is not yet out

    void Serve(Descriptor socket) {
        Lines lines(socket, longestLine);
        for (std::string line; lines.Next(line) && Answer(socket, line);) {
        }
        std::lock_guard lock(mutex);
        sockets.erase(socket.Get());
        socket.Close();
        changed.notify_all();
    }

    bool Answer(const Descriptor& socket, const std::string& line) {
        Count(+1);
        const bool sent = SendLine(socket, AnswerLine(line, handler));
        Count(-1);
        return sent;
    }

    void Count(int change) {
        std::lock_guard lock(mutex);
        answering += static_cast<size_t>(change);
        changed.notify_all();
    }
};

ControlSocket::ControlSocket(const std::string& path, size_t longestLine, Handler handler)
    : m_path(path),
      m_listener(Listen(path)),
      m_clients(new Clients{longestLine, std::move(handler), {}, {}, {}}),
      m_acceptor(&ControlSocket::AcceptClients, this) {}

ControlSocket::~ControlSocket() {
    shutdown(m_listener.Get(), SHUT_RDWR);
    m_acceptor.join();
    unlink(m_path.c_str());
    std::unique_lock lock(m_clients->mutex);
    m_clients->changed.wait_for(lock, kPatienceAtEnd, [this] { return m_clients->answering == 0; });
    for (const int socket : m_clients->sockets)
        shutdown(socket, SHUT_RDWR);
    m_clients->changed.wait_for(lock, kPatienceAtEnd, [this] { return m_clients->sockets.empty(); });
}

void ControlSocket::AcceptClients() {
    while (true) {
        Descriptor client(accept4(m_listener.Get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (!client && errno == EINVAL) return;  // the destructor has shut the listener down
        if (!client) {
            if (errno == EMFILE || errno == ENFILE) std::this_thread::sleep_for(kDescriptorsTakenPause);
            continue;
        }
        std::lock_guard lock(m_clients->mutex);
        if (m_clients->sockets.size() == kMaxClients) continue;
        m_clients->sockets.insert(client.Get());
        std::thread([clients = m_clients, socket = std::move(client)]() mutable {
            clients->Serve(std::move(socket));
        }).detach();
    }
}

Json::Value AnswerLine(const std::string& line, const ControlSocket::Handler& handler) {
    try {
        return handler(ParseObject(line));
    } catch (const std::exception& error) {
        Json::Value refusal(Json::objectValue);
        refusal["error"] = error.what();
        return refusal;
    }
}

Json::Value AskControlSocket(const std::string& path, const Json::Value& request) {
    const Descriptor socket = ConnectUnix(path);
    if (!socket) Fail(path, std::string("no process answers: ") + std::strerror(errno));
    std::string line;
    if (!SendLine(socket, request) || !Lines(socket, std::string::npos - 1).Next(line))
        Fail(path, "the process has gone without an answer");
    return ParseObject(line);
}

}  // namespace testbed
