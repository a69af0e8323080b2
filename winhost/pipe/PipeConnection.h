// What joins the two ends of a pipe: a socket that keeps messages apart. Each end sends its messages, and
// what it has read of the other's, which ends the other end's writes.
#pragma once

#include <deque>
#include <string>
#include <vector>

#include <minwindef.h>

#include "testbed/Descriptor.h"
#include "winhost/pipe/Interrupt.h"

namespace winhost {

// ERROR_SUCCESS when there is something to read at the descriptor, or its peer has hung up;
// ERROR_OPERATION_ABORTED when interrupted.
DWORD AwaitInput(int descriptor, const Interrupt& interrupt);

// Used by one thread at a time; the interrupt is for the others.
class PipeConnection {
  public:
    static constexpr DWORD kLongestMessage = 65536;

    // `room` is how many bytes a write may leave unread.
    PipeConnection(testbed::Descriptor socket, DWORD room);
    ~PipeConnection();

    // One message, or as much as fits, and the rest next time (ERROR_MORE_DATA). ERROR_BROKEN_PIPE when the
    // peer has closed its end and all is read; ERROR_PIPE_NOT_CONNECTED when it has disconnected.
    DWORD Read(void* buffer, DWORD size, DWORD& bytes, const Interrupt& interrupt);
    // The same, without regard to where messages end: what has come, up to `size` bytes, but at least one.
    DWORD ReadBytes(void* buffer, DWORD size, DWORD& bytes, const Interrupt& interrupt);
    // Waits until the peer has read all that was written here. The errors are those of Read.
    DWORD AwaitRead(const Interrupt& interrupt);
    // ERROR_NO_DATA when the peer has closed its end, ERROR_BROKEN_PIPE when it does so meanwhile;
    // ERROR_NOT_SUPPORTED for a message that is longer than the longest.
    DWORD Write(const void* data, DWORD size, DWORD& bytes, const Interrupt& interrupt);
    bool PeerHasGone();
    // The peer finds nothing more in the pipe.
    void Disconnect();

  private:
    enum class Kind : char { Message, Progress, Disconnect };
    struct Progress {
        uint32_t bytes = 0, messages = 0;
    };

    void Receive();
    void Take(const char* packet, size_t size);
    bool Send(Kind kind, const void* data, size_t size);
    bool HasRoom() const;
    void Report(uint32_t bytes, bool wholeMessage);
    void DropEmptyMessages();

    const testbed::Descriptor m_socket;
    const DWORD m_room;
    std::vector<char> m_packet;          // room for one that comes
    std::deque<std::string> m_messages;  // come, and not yet read
    Progress m_unread;                   // sent, and not yet read there
    Progress m_unreported;               // read here, which the peer does not know yet
    DWORD m_end;                         // why nothing more comes; ERROR_SUCCESS while it may
};

}  // namespace winhost
