#include "winhost/io/FrameSender.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <cerrno>
#include <cstddef>
#include <exception>

#include <winerror.h>

namespace winhost {

namespace {

constexpr size_t kMaxKept = 16u << 20;

ssize_t SendNow(int socket, iovec* parts, size_t count) {
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = count;
    ssize_t sent;
    do {
        sent = sendmsg(socket, &message, MSG_DONTWAIT | MSG_NOSIGNAL);
    } while (sent < 0 && errno == EINTR);
    return sent < 0 && (errno == EAGAIN || errno == EWOULDBLOCK) ? 0 : sent;
}

}  // namespace

DWORD FrameSender::Send(const mpmlink::Header& header, const void* payload) {
    std::lock_guard lock(m_mutex);
    if (m_failed || m_stopping) return ERROR_DEVICE_NOT_CONNECTED;
    const size_t whole = sizeof header + header.size;
    if (m_kept.size() - m_keptSent + whole > kMaxKept) return ERROR_NO_SYSTEM_RESOURCES;
    size_t sent = 0;
    if (m_kept.empty()) {
        iovec parts[] = {{const_cast<mpmlink::Header*>(&header), sizeof header},
                         {const_cast<void*>(payload), header.size}};
        const ssize_t result = SendNow(m_socket, parts, header.size ? 2 : 1);
        if (result < 0) {
            m_failed = true;
            return ERROR_DEVICE_NOT_CONNECTED;
        }
        sent = static_cast<size_t>(result);
    }
    if (sent < whole) {
        try {
            KeepRest(header, payload, sent);
        } catch (const std::exception&) {
            // No memory or no thread. Half a frame may be on its way: the connection is of no more use.
            m_failed = true;
            shutdown(m_socket, SHUT_RDWR);
            return ERROR_DEVICE_NOT_CONNECTED;
        }
    }
    return ERROR_SUCCESS;
}

void FrameSender::KeepRest(const mpmlink::Header& header, const void* payload, size_t sent) {
    if (!m_thread.joinable()) m_thread = std::thread([this] { SendKept(); });
    m_kept.erase(m_kept.begin(), m_kept.begin() + static_cast<std::ptrdiff_t>(m_keptSent));
    m_keptSent = 0;
    m_kept.reserve(m_kept.size() + sizeof header + header.size - sent);
    const auto* head = reinterpret_cast<const char*>(&header);
    if (sent < sizeof header) m_kept.insert(m_kept.end(), head + sent, head + sizeof header);
    const size_t payloadSent = sent > sizeof header ? sent - sizeof header : 0;
    const auto* bytes = static_cast<const char*>(payload);
    if (payloadSent < header.size) m_kept.insert(m_kept.end(), bytes + payloadSent, bytes + header.size);
    m_changed.notify_one();
}

void FrameSender::SendKept() {
    std::unique_lock lock(m_mutex);
    while (!m_stopping && !m_failed) {
        if (m_kept.empty()) {
            m_changed.wait(lock);
            continue;
        }
        iovec rest{m_kept.data() + m_keptSent, m_kept.size() - m_keptSent};
        const ssize_t sent = SendNow(m_socket, &rest, 1);
        if (sent > 0) {
            m_keptSent += static_cast<size_t>(sent);
            if (m_keptSent == m_kept.size()) {
                m_kept.clear();
                m_keptSent = 0;
            }
        } else if (sent < 0) {
            m_failed = true;
        } else {
            lock.unlock();
            pollfd writable{m_socket, POLLOUT, 0};
            poll(&writable, 1, -1);
            lock.lock();
        }
    }
}

void FrameSender::Stop() {
    {
        std::lock_guard lock(m_mutex);
        m_stopping = true;
    }
    m_changed.notify_all();
    if (m_thread.joinable()) m_thread.join();
}

}  // namespace winhost
