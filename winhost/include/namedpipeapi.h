// Named pipes, on handles that are not overlapped. Server and client may be different processes, as long as
// their PCs have the same root.
//
// A request on such a handle blocks, and one made meanwhile with the same handle waits for it. CancelIoEx
// from another thread ends the one that is under way with ERROR_OPERATION_ABORTED, and so does CloseHandle.
// The message of a write that is cancelled stays in the pipe.
#pragma once

#include <minwinbase.h>

#define PIPE_ACCESS_INBOUND 0x1
#define PIPE_ACCESS_DUPLEX 0x3

#define PIPE_WAIT 0x0
#define PIPE_TYPE_BYTE 0x0
#define PIPE_READMODE_BYTE 0x0
#define PIPE_READMODE_MESSAGE 0x2
#define PIPE_TYPE_MESSAGE 0x4
#define PIPE_UNLIMITED_INSTANCES 255

// A new instance of the pipe; clients can connect from now on. A write of more bytes than the buffer has room
// for ends when the peer has read so many that the rest fits; without a buffer, when it has read all.
//
// The first instance fixes the number of instances: another one gives ERROR_ACCESS_DENIED, one too many
// ERROR_PIPE_BUSY. Clients of another user than the server's (SYSTEM apart) are refused, unless the security
// descriptor has a null DACL. Only duplex pipes of messages and inbound ones of bytes, both of which block,
// with buffers of at most 65536 bytes and handles that are not inherited: all else is ERROR_NOT_SUPPORTED,
// and so is a longer message. A client opens a duplex pipe for reading and writing, and reads when it has set
// its read mode; it opens an inbound one for writing, and neither end does the other's part
// (ERROR_ACCESS_DENIED).
HANDLE CreateNamedPipeA(LPCSTR name, DWORD openMode, DWORD pipeMode, DWORD maxInstances, DWORD outBufferSize,
                        DWORD inBufferSize, DWORD defaultTimeout, LPSECURITY_ATTRIBUTES attributes);
// Blocks until a client has connected. ERROR_PIPE_CONNECTED when one was there already, ERROR_NO_DATA when it
// has gone again.
BOOL ConnectNamedPipe(HANDLE pipe, LPOVERLAPPED overlapped);
// What the client has not read yet is lost. No client can connect until the next ConnectNamedPipe.
BOOL DisconnectNamedPipe(HANDLE pipe);
// Waits until the other end has read all that was written to this one: ERROR_BROKEN_PIPE or
// ERROR_PIPE_NOT_CONNECTED when it never will. For pipes alone; other files give ERROR_INVALID_FUNCTION.
BOOL FlushFileBuffers(HANDLE file);
// Sets the read mode to messages; all else gives ERROR_NOT_SUPPORTED.
BOOL SetNamedPipeHandleState(HANDLE pipe, LPDWORD mode, LPDWORD maxCollectionCount,
                             LPDWORD collectDataTimeout);
