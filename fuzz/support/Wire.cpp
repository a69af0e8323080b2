#include "fuzz/support/Wire.h"

#include <poll.h>
#include <stdlib.h>
#include <sys/socket.h>

#include <cerrno>
#include <filesystem>

#include "testbed/Sockets.h"

namespace fuzz {

namespace {

constexpr int kPatience = 20000;  // milliseconds of real time: a busy machine is no finding

}  // namespace

const std::string& SocketFolder() {
    static const std::string& folder = *new std::string([] {
        std::string name = (std::filesystem::temp_directory_path() / "zelservice-fuzz-XXXXXX").string();
        Require(mkdtemp(name.data()) != nullptr, "there is a temporary folder");
        return name;
    }());
    return folder;
}

testbed::Descriptor ConnectTo(const std::string& path) {
    testbed::Descriptor made = testbed::ConnectUnix(path);
    Require(bool(made), "the next connection is taken");
    return made;
}

testbed::Descriptor ListenAt(const std::string& path) {
    testbed::Descriptor made = testbed::ListenUnix(path, 8);
    Require(bool(made), "a socket can be listened at");
    return made;
}

testbed::Descriptor Accept(const testbed::Descriptor& listener) {
    return testbed::Descriptor(accept4(listener.Get(), nullptr, nullptr, SOCK_CLOEXEC));
}

void SendBytes(const testbed::Descriptor& socket, Bytes bytes) {
    while (!bytes.empty()) {
        const ssize_t sent = send(socket.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent < 0 && errno == EINTR) continue;
        if (sent <= 0) return;
        bytes = bytes.subspan(size_t(sent));
    }
}

void FinishSending(const testbed::Descriptor& socket) {
    shutdown(socket.Get(), SHUT_WR);
}

std::string Receive(const testbed::Descriptor& socket, size_t size) {
    std::string bytes(size, '\0');
    size_t done = 0;
    while (done < size) {
        // The fuzzer's alarms interrupt a wait.
        pollfd readable{socket.Get(), POLLIN, 0};
        const int ready = poll(&readable, 1, kPatience);
        if (ready < 0 && errno == EINTR) continue;
        const ssize_t received = ready > 0 ? recv(socket.Get(), bytes.data() + done, size - done, 0) : 0;
        if (received < 0 && errno == EINTR) continue;
        if (received <= 0) break;
        done += size_t(received);
    }
    bytes.resize(done);
    return bytes;
}

std::string ReceiveRest(const testbed::Descriptor& socket) {
    std::string bytes;
    for (std::string piece; !(piece = Receive(socket, 1)).empty(); bytes += piece) {
        char more[65536];
        const ssize_t received = recv(socket.Get(), more, sizeof more, MSG_DONTWAIT);
        if (received > 0) piece.append(more, size_t(received));
    }
    return bytes;
}

bool ReceiveAll(const testbed::Descriptor& socket, void* into, size_t size) {
    return testbed::ReceiveAll(socket, into, size) == size;
}

std::vector<uint8_t> FrameOf(mpmlink::Header header, Bytes payload) {
    header.size = static_cast<uint32_t>(payload.size());
    const auto* const head = reinterpret_cast<const uint8_t*>(&header);
    std::vector<uint8_t> frame(head, head + sizeof header);
    frame.insert(frame.end(), payload.begin(), payload.end());
    return frame;
}

}  // namespace fuzz
