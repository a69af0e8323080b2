// What joins the two ends of a pipe: a socket for the data, and for each direction a count of what was read
// of it, which ends the other end's writes.
//
// In a pipe of messages each is preceded by its length. A byte pipe carries bytes alone.
#pragma once

#include <memory>
#include <optional>

#include <minwindef.h>

#include "testbed/Descriptor.h"
#include "winhost/pipe/Interrupt.h"

namespace winhost {

// ERROR_SUCCESS when one of `events` has come at the descriptor, or its peer has hung up;
// ERROR_OPERATION_ABORTED when interrupted.
DWORD AwaitDescriptor(int descriptor, short events, const Interrupt& interrupt);

// Used by one thread at a time; the interrupt is for the others.
class PipeConnection {
  public:
    // The client's side of a fresh connection. Null when the host has no descriptors left. `room` is how many
    // bytes a write may leave unread.
    static std::unique_ptr<PipeConnection> Offer(testbed::Descriptor socket, bool holdsMessages, DWORD room);
    // The server's, of a socket that has something to read. Null when the client went before it had
    // connected.
    static std::unique_ptr<PipeConnection> Take(testbed::Descriptor socket, bool holdsMessages, DWORD room);
    ~PipeConnection();

    // By message: one of them, or as much as fits, and the rest next time (ERROR_MORE_DATA). Else what is
    // there, across messages. ERROR_BROKEN_PIPE when the peer has closed its end and all is read;
    // ERROR_PIPE_NOT_CONNECTED when it has disconnected.
    DWORD Read(void* buffer, DWORD size, bool byMessage, DWORD& bytes, const Interrupt& interrupt);
    // ERROR_NO_DATA when the peer has closed its end, ERROR_BROKEN_PIPE when it does so meanwhile.
    DWORD Write(const void* data, DWORD size, DWORD& bytes, const Interrupt& interrupt);
    bool PeerHasGone() const;
    // The peer finds nothing more in the pipe.
    void Disconnect();

  private:
    PipeConnection() = default;
    bool IsDisconnected() const;
    DWORD End() const;
    DWORD AwaitData(const Interrupt& interrupt);
    DWORD BeginMessage(const Interrupt& interrupt);
    DWORD Receive(char* into, DWORD size, DWORD& received);
    DWORD ReadMessage(char* buffer, DWORD size, DWORD& bytes, const Interrupt& interrupt);
    DWORD ReadBytes(char* buffer, DWORD size, DWORD& bytes, const Interrupt& interrupt);
    DWORD Send(const void* data, DWORD size, const Interrupt& interrupt);
    DWORD AwaitReader(const Interrupt& interrupt);
    void CountWhatWasRead();

    testbed::Descriptor m_socket;
    testbed::Descriptor m_readHere, m_readThere;  // bytes, as counts of eventfds
    testbed::Descriptor m_disconnected;           // raised by the server
    bool m_isServer = false;
    bool m_holdsMessages = false;
    DWORD m_room = 0;
    uint64_t m_unread = 0;        // sent, and not yet read there
    std::optional<DWORD> m_left;  // of the message that was begun
};

}  // namespace winhost
