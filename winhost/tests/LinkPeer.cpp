#include "winhost/tests/LinkPeer.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <linux/sockios.h>

#include <stdexcept>

#include "testbed/Sockets.h"

namespace {

void AwaitInput(int socket) {
    pollfd readable{socket, POLLIN, 0};
    if (poll(&readable, 1, 10'000) <= 0) throw std::runtime_error("the host sent nothing");
}

}  // namespace

LinkPeer::LinkPeer(const std::string& path) : m_path(path), m_listener(testbed::ListenUnix(path, 8)) {
    if (!m_listener) throw std::runtime_error("cannot listen on " + path);
}

LinkPeer::Connection LinkPeer::Accept() {
    AwaitInput(m_listener.Get());
    return Connection(testbed::Descriptor(accept4(m_listener.Get(), nullptr, nullptr, SOCK_CLOEXEC)));
}

size_t LinkPeer::Connection::ReceiveSome(char* bytes, size_t size) {
    AwaitInput(m_socket.Get());
    testbed::Descriptor file;
    const ssize_t count = testbed::ReceiveWithFile(m_socket, bytes, size, file);
    if (file) m_memory = testbed::SharedMemory<mpmlink::LinkMemory>(file);
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
    if (frame.header.kind == mpmlink::Kind::LargeRequest) TakeInput(frame);
    return frame;
}

void LinkPeer::Connection::TakeInput(Frame& frame) {
    mpmlink::LargeRequest request{};
    frame.payload.copy(reinterpret_cast<char*>(&request.position), sizeof request - sizeof request.header);
    const auto input = m_memory->toFirmware.Get(request.position, request.size);
    frame.payload.assign(input.begin(), input.end());
    frame.wasInMemory = true;
    frame.header.kind = mpmlink::Kind::Request;
    frame.header.size = request.size;
    m_memory->toFirmware.Release(request.position, request.size);
}

bool LinkPeer::Connection::AwaitEnd() {
    char byte;
    return ReceiveSome(&byte, 1) == 0;
}

bool LinkPeer::Connection::AllTaken() const {
    int unsent = 0;
    ioctl(m_socket.Get(), SIOCOUTQ, &unsent);
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

void LinkPeer::Connection::SendLargeMessage(const std::string& bytes) {
    const auto position =
        m_memory->toHost.Put({reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()});
    if (!position) throw std::runtime_error("the memory is full");
    SendHeader({0, mpmlink::Kind::LargeMessage, *position, 0, static_cast<uint32_t>(bytes.size())});
}

void LinkPeer::Connection::SendHeader(const mpmlink::Header& header) {
    SendBytes(&header, sizeof header);
}

void LinkPeer::Connection::SendBytes(const void* bytes, size_t size) {
    if (!testbed::SendAll(m_socket, bytes, size)) throw std::runtime_error("the host takes nothing any more");
}
