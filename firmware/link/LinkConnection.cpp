#include "firmware/link/LinkConnection.h"

#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "firmware/Firmware.h"
#include "firmware/link/LinkServer.h"
#include "testbed/Sockets.h"

namespace mpm {

namespace {

constexpr size_t kReadSize = 256u << 10;  // more than the largest packet of a stream
// A host that does not read its answers is not read from either.
constexpr size_t kMaxUnsentAnswers = 4u << 20;

}  // namespace

LinkConnection::LinkConnection(LinkServer& server, uint64_t number, testbed::Descriptor socket)
    : m_server(server), m_number(number), m_socket(std::move(socket)), m_input(kReadSize) {}

LinkConnection::~LinkConnection() {
    Close();
}

void LinkConnection::Start() {
    m_watchedEvents = EPOLLIN;
    m_watch =
        m_server.m_loop.Watch(m_socket.Get(), m_watchedEvents, [self = weak_from_this()](uint32_t events) {
            if (const auto connection = self.lock()) connection->OnReady(events);
        });
}

void LinkConnection::Close() {
    if (m_watch) m_server.m_loop.Unwatch(std::exchange(m_watch, 0));
    m_socket.Close();
}

void LinkConnection::OnReady(uint32_t events) {
    if (events & EPOLLOUT) WriteUnsent();
    if (m_socket && events & (EPOLLIN | EPOLLHUP | EPOLLERR)) Read();
}

void LinkConnection::Read() {
    if (m_input.size() - m_inputEnd < kReadSize / 2) {
        std::memmove(m_input.data(), m_input.data() + m_inputStart, m_inputEnd - m_inputStart);
        m_inputEnd -= std::exchange(m_inputStart, 0);
        if (m_input.size() - m_inputEnd < kReadSize / 2) m_input.resize(m_inputEnd + kReadSize);
    }
    testbed::Descriptor file;
    const ssize_t count =
        testbed::ReceiveWithFile(m_socket, m_input.data() + m_inputEnd, m_input.size() - m_inputEnd, file);
    if (file) m_memory = testbed::SharedMemory<mpmlink::LinkMemory>(file);
    if (count < 0 && (errno == EAGAIN || errno == EINTR)) return;
    if (count <= 0) return m_server.Drop(m_number, "");
    m_inputEnd += size_t(count);
    HandleFrames();
}

void LinkConnection::HandleFrames() {
    while (m_socket) {
        const size_t available = m_inputEnd - m_inputStart;
        mpmlink::Header header;
        if (available < sizeof header) break;
        std::memcpy(&header, m_input.data() + m_inputStart, sizeof header);
        if (header.size > mpmlink::kMaxPayload)
            return m_server.Drop(m_number, "a frame of " + std::to_string(header.size) + " bytes");
        if (available - sizeof header < header.size) break;
        const std::span payload(m_input.data() + m_inputStart + sizeof header, header.size);
        m_inputStart += sizeof header + header.size;
        if (header.kind == mpmlink::Kind::LargeRequest)
            HandleLargeRequest(header, payload);
        else
            m_server.OnFrame(*this, header, payload);
    }
    if (m_inputStart == m_inputEnd) m_inputStart = m_inputEnd = 0;
    if (m_socket) UpdateEvents();
}

void LinkConnection::HandleLargeRequest(mpmlink::Header header, std::span<const uint8_t> payload) {
    mpmlink::LargeRequest frame{};
    std::span<const uint8_t> input;
    if (m_memory && payload.size() == sizeof frame - sizeof header) {
        std::memcpy(&frame.position, payload.data(), payload.size());
        if (frame.size <= mpmlink::kMaxPayload) input = m_memory->toFirmware.Get(frame.position, frame.size);
    }
    if (input.empty()) return m_server.Drop(m_number, "a large request without its input");
    header.kind = mpmlink::Kind::Request;
    header.size = frame.size;
    m_server.OnFrame(*this, header, input);
    m_memory->toFirmware.Release(frame.position, frame.size);
}

void LinkConnection::SendFrame(const mpmlink::Header& header, std::span<const uint8_t> payload,
                               std::span<const uint8_t> trailer) {
    if (header.kind == mpmlink::Kind::Message && header.size >= mpmlink::kLarge && m_memory)
        if (const auto position = m_memory->toHost.Put(payload, trailer))
            return Write({0, mpmlink::Kind::LargeMessage, *position, 0, header.size}, {}, {});
    Write(header, payload, trailer);
}

void LinkConnection::Write(const mpmlink::Header& header, std::span<const uint8_t> payload,
                           std::span<const uint8_t> trailer) {
    iovec parts[] = {{const_cast<mpmlink::Header*>(&header), sizeof header},
                     {const_cast<uint8_t*>(payload.data()), payload.size()},
                     {const_cast<uint8_t*>(trailer.data()), trailer.size()}};
    size_t sent = 0;
    if (Unsent() == 0 && m_socket) {
        msghdr message{};
        message.msg_iov = parts;
        message.msg_iovlen = std::size(parts);
        const ssize_t count = sendmsg(m_socket.Get(), &message, MSG_NOSIGNAL | MSG_DONTWAIT);
        sent = count > 0 ? size_t(count) : 0;
        // A broken connection is seen, and dropped, by the next read.
    }
    for (const iovec& part : parts) {
        const size_t skipped = std::min(sent, part.iov_len);
        sent -= skipped;
        const auto* begin = static_cast<const uint8_t*>(part.iov_base);
        m_unsent.insert(m_unsent.end(), begin + skipped, begin + part.iov_len);
    }
    if (Unsent()) UpdateEvents();
}

void LinkConnection::WriteUnsent() {
    const size_t before = Unsent();
    const ssize_t count =
        send(m_socket.Get(), m_unsent.data() + m_unsentStart, before, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (count > 0) m_unsentStart += size_t(count);
    if (Unsent() == 0) {
        m_unsent.clear();
        m_unsentStart = 0;
    } else if (m_unsentStart > m_unsent.size() / 2) {
        m_unsent.erase(m_unsent.begin(), m_unsent.begin() + ptrdiff_t(m_unsentStart));
        m_unsentStart = 0;
    }
    UpdateEvents();
    if (before > LinkServer::kComfortable && Unsent() <= LinkServer::kComfortable &&
        m_server.m_listening == m_number)
        m_server.m_events.drained();
}

void LinkConnection::UpdateEvents() {
    if (!m_watch) return;
    const size_t messages = m_server.m_listening == m_number ? kMaxUnreadBytes : 0;
    const uint32_t events =
        (Unsent() ? EPOLLOUT : 0u) | (Unsent() > kMaxUnsentAnswers + messages ? 0u : EPOLLIN);
    if (events != m_watchedEvents) m_server.m_loop.ChangeEvents(m_watch, m_watchedEvents = events);
}

}  // namespace mpm
