#include "winhost/tests/LinkPeer.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <linux/sockios.h>

#include <cstring>
#include <stdexcept>
#include <utility>

namespace {

void AwaitInput(int socket) {
    pollfd readable{socket, POLLIN, 0};
    if (poll(&readable, 1, 10'000) <= 0) throw std::runtime_error("the host sent nothing");
}

}  // namespace

LinkPeer::LinkPeer(const std::string& path)
    : m_path(path), m_listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    if (bind(m_listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        listen(m_listener, 8) != 0)
        throw std::runtime_error("cannot listen on " + path);
}

LinkPeer::~LinkPeer() {
    Close();
}

void LinkPeer::Close() {
    if (m_listener >= 0) close(std::exchange(m_listener, -1));
}

LinkPeer::Connection LinkPeer::Accept() {
    AwaitInput(m_listener);
    return Connection(accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC));
}

LinkPeer::Connection::Connection(Connection&& other) noexcept : m_socket(std::exchange(other.m_socket, -1)) {}

LinkPeer::Connection::~Connection() {
    Close();
}

void LinkPeer::Connection::Close() {
    if (m_socket >= 0) close(std::exchange(m_socket, -1));
}

size_t LinkPeer::Connection::ReceiveSome(char* bytes, size_t size) {
    AwaitInput(m_socket);
    const ssize_t count = recv(m_socket, bytes, size, 0);
    return count > 0 ? static_cast<size_t>(count) : 0;
}

LinkPeer::Frame LinkPeer::Connection::Receive() {
    Frame frame;
    const auto receive = [this](char* bytes, size_t size) {
        for (size_t done = 0; done < size;) {
            const size_t count = ReceiveSome(bytes + done, size - done);
            if (count == 0) throw std::runtime_error("the host has closed its handle");
            done += count;
        }
    };
    receive(reinterpret_cast<char*>(&frame.header), sizeof frame.header);
    frame.payload.resize(frame.header.size);
    receive(frame.payload.data(), frame.payload.size());
    return frame;
}

bool LinkPeer::Connection::AwaitEnd() {
    char byte;
    return ReceiveSome(&byte, 1) == 0;
}

bool LinkPeer::Connection::AllTaken() const {
    int unsent = 0;
    ioctl(m_socket, SIOCOUTQ, &unsent);
    return unsent == 0;
}

void LinkPeer::Connection::Respond(const Frame& request, uint32_t error, const std::string& payload) {
    SendHeader({static_cast<uint32_t>(payload.size()), mpmlink::Kind::Response, request.header.id,
                request.header.code, error});
    SendBytes(payload.data(), payload.size());
}

void LinkPeer::Connection::SendMessage(const std::string& bytes) {
    SendHeader({static_cast<uint32_t>(bytes.size()), mpmlink::Kind::Message, 0, 0, 0});
    SendBytes(bytes.data(), bytes.size());
}

void LinkPeer::Connection::SendHeader(const mpmlink::Header& header) {
    SendBytes(&header, sizeof header);
}

void LinkPeer::Connection::SendBytes(const void* bytes, size_t size) {
    for (size_t done = 0; done < size;) {
        const ssize_t count =
            send(m_socket, static_cast<const char*>(bytes) + done, size - done, MSG_NOSIGNAL);
        if (count <= 0) throw std::runtime_error("the host takes nothing any more");
        done += static_cast<size_t>(count);
    }
}
