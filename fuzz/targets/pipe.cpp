// What another process puts into a pipe of the PC: any bytes in place of messages, any count of what it has
// read.
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <memory>
#include <vector>

#include "fuzz/Input.h"
#include "fuzz/support/Wire.h"
#include "winhost/pipe/PipeConnection.h"

#include <winerror.h>

namespace {

constexpr int kMostReads = 64;

// The other process's end, which has greeted as it should.
struct Peer {
    testbed::Descriptor socket;
    testbed::Descriptor counts[3];
};

bool Greet(const Peer& peer, size_t descriptors) {
    char greeting = 0;
    iovec data{&greeting, 1};
    alignas(cmsghdr) char control[CMSG_SPACE(3 * sizeof(int))]{};
    msghdr message{};
    message.msg_iov = &data;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = CMSG_SPACE(descriptors * sizeof(int));
    if (descriptors == 0) message.msg_control = nullptr, message.msg_controllen = 0;
    if (cmsghdr* const header = CMSG_FIRSTHDR(&message)) {
        header->cmsg_level = SOL_SOCKET;
        header->cmsg_type = SCM_RIGHTS;
        header->cmsg_len = CMSG_LEN(descriptors * sizeof(int));
        for (size_t i = 0; i < descriptors; ++i) {
            const int descriptor = peer.counts[i].Get();
            std::memcpy(CMSG_DATA(header) + i * sizeof(int), &descriptor, sizeof descriptor);
        }
    }
    return sendmsg(peer.socket.Get(), &message, MSG_NOSIGNAL) == 1;
}

}  // namespace

FUZZ_TARGET(pipe) {
    fuzz::Input from(input);
    const uint8_t shape = from.Byte();
    const bool holdsMessages = shape & 1, byMessage = shape & 2;
    const size_t descriptors = shape & 4 ? (shape >> 4) % 4 : 3;
    const DWORD room = from.Word();
    int ends[2];
    fuzz::Require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) == 0, "sockets");
    Peer peer{testbed::Descriptor(ends[0]), {}};
    testbed::Descriptor own(ends[1]);
    for (auto& count : peer.counts)
        count = testbed::Descriptor(eventfd(from.Byte(), EFD_CLOEXEC | EFD_NONBLOCK));
    fuzz::Require(Greet(peer, descriptors), "a greeting leaves");
    const auto connection = winhost::PipeConnection::Take(std::move(own), holdsMessages, room);
    fuzz::Require((connection != nullptr) == (descriptors == 3), "just a whole greeting is taken");
    if (!connection) return;

    const winhost::Interrupt interrupt;
    const fuzz::Bytes bytes = from.Rest();
    fuzz::SendBytes(peer.socket, bytes);
    peer.socket = {};
    const auto buffer = std::make_unique<char[]>(room + size_t{1});
    size_t total = 0;
    DWORD error = ERROR_SUCCESS;
    for (int reads = 0; reads < kMostReads && (error == ERROR_SUCCESS || error == ERROR_MORE_DATA); ++reads) {
        DWORD size = 0;
        error = connection->Read(buffer.get(), room, holdsMessages && byMessage, size, interrupt);
        fuzz::Require(size <= room, "no more is read than there is room for");
        total += size;
        if (room == 0) break;
    }
    fuzz::Require(total <= bytes.size(), "no byte is made up");
}
