// What another process puts into a pipe of the PC: any packets in place of messages and progress.
#include <sys/socket.h>

#include <memory>

#include "fuzz/Input.h"
#include "testbed/Sockets.h"
#include "winhost/pipe/PipeConnection.h"

#include <winerror.h>

namespace {

constexpr int kMostReads = 64;

}  // namespace

FUZZ_TARGET(pipe) {
    fuzz::Input from(input);
    const DWORD room = from.Word();
    int ends[2];
    fuzz::Require(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) == 0, "sockets");
    testbed::Descriptor peer(ends[0]);
    winhost::PipeConnection connection(testbed::Descriptor(ends[1]), room);
    const winhost::Interrupt interrupt;
    size_t sent = 0;
    for (uint8_t packets = from.Byte() % 16; packets > 0 && !from.AtEnd(); --packets) {
        const fuzz::Bytes packet = from.LongBlock();
        send(peer.Get(), packet.data(), packet.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        sent += packet.size();
    }
    peer.Close();
    const auto buffer = std::make_unique<char[]>(room + size_t{1});
    size_t total = 0;
    DWORD error = ERROR_SUCCESS;
    for (int reads = 0; reads < kMostReads && (error == ERROR_SUCCESS || error == ERROR_MORE_DATA); ++reads) {
        DWORD size = 0;
        error = connection.Read(buffer.get(), room, size, interrupt);
        fuzz::Require(size <= room, "no more is read than there is room for");
        total += size;
        if (room == 0) break;
    }
    fuzz::Require(total <= sent, "no byte is made up");
    DWORD written = 0;
    error = connection.Write("x", 1, written, interrupt);
    fuzz::Require(error != ERROR_SUCCESS && written == 0, "nothing is written to an end that has gone");
}
