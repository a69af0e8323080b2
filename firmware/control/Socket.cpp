#include "firmware/control/Socket.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iterator>
#include <memory>
#include <optional>
#include <stdexcept>

#include "firmware/Report.h"

namespace mpm::control {

namespace {

constexpr timeval kPatience{30, 0};

[[noreturn]] void Fail(const std::string& path, const std::string& why) {
    throw std::runtime_error("control socket " + path + ": " + why);
}

sockaddr_un NameOf(const std::string& path) {
    sockaddr_un name{};
    name.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof name.sun_path) Fail(path, "the path is empty or too long");
    std::memcpy(name.sun_path, path.c_str(), path.size() + 1);
    return name;
}

void LimitWaiting(const Descriptor& socket) {
    setsockopt(socket.Get(), SOL_SOCKET, SO_RCVTIMEO, &kPatience, sizeof kPatience);
    setsockopt(socket.Get(), SOL_SOCKET, SO_SNDTIMEO, &kPatience, sizeof kPatience);
}

bool SendLine(const Descriptor& socket, const Json::Value& value) {
    const std::string line = Compact(value) + "\n";
    for (size_t sent = 0; sent < line.size();) {
        const ssize_t count = send(socket.Get(), line.data() + sent, line.size() - sent, MSG_NOSIGNAL);
        if (count <= 0) return false;
        sent += size_t(count);
    }
    return true;
}

std::optional<Json::Value> ReceiveLine(const Descriptor& socket) {
    std::string line;
    char block[65536];
    while (line.empty() || line.back() != '\n') {
        const ssize_t count = recv(socket.Get(), block, sizeof block, 0);
        if (count <= 0 || line.size() + size_t(count) > kMaxLine) return std::nullopt;
        line.append(block, size_t(count));
    }
    Json::Value value;
    const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    if (!reader->parse(line.data(), line.data() + line.size(), &value, nullptr)) return std::nullopt;
    return value;
}

}  // namespace

Server::Server(const std::string& path) : m_path(path) {
    if (path.empty()) return;
    const sockaddr_un name = NameOf(path);
    struct stat left;
    if (lstat(path.c_str(), &left) == 0 && S_ISSOCK(left.st_mode)) unlink(path.c_str());
    m_listener = Descriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const mode_t before = umask(0077);
    const bool bound = bind(m_listener.Get(), reinterpret_cast<const sockaddr*>(&name), sizeof name) == 0;
    umask(before);
    if (!bound || listen(m_listener.Get(), 16) != 0) {
        m_path.clear();
        Fail(path, std::strerror(errno));
    }
}

Server::~Server() {
    if (!m_path.empty()) unlink(m_path.c_str());
}

void Server::Serve(int signals, const Handler& handler) {
    pollfd waits[] = {{signals, POLLIN, 0}, {m_listener.Get(), POLLIN, 0}};
    for (;;) {
        if (poll(waits, std::size(waits), -1) < 0) continue;
        if (waits[0].revents) return;
        if (waits[1].revents) ServeOne(handler);
    }
}

void Server::ServeOne(const Handler& handler) {
    const Descriptor socket(accept4(m_listener.Get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (!socket) return;
    LimitWaiting(socket);
    Json::Value answer;
    try {
        const std::optional<Json::Value> request = ReceiveLine(socket);
        if (!request || !request->isObject()) throw std::runtime_error("the request is not understood");
        answer = handler(*request);
    } catch (const std::exception& error) {
        answer["error"] = error.what();
    }
    SendLine(socket, answer);
}

Json::Value Ask(const std::string& path, const Json::Value& request) {
    const sockaddr_un name = NameOf(path);
    const Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (connect(socket.Get(), reinterpret_cast<const sockaddr*>(&name), sizeof name) != 0)
        Fail(path, std::string("no simulator answers: ") + std::strerror(errno));
    LimitWaiting(socket);
    if (!SendLine(socket, request)) Fail(path, "the simulator has gone");
    const std::optional<Json::Value> answer = ReceiveLine(socket);
    if (!answer) Fail(path, "the simulator gave no answer");
    return *answer;
}

}  // namespace mpm::control
