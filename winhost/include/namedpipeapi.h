// Named pipes, on handles that are not overlapped. Server and client may be different processes, as long as
// their PCs have the same root.
//
// A request on such a handle blocks, and one made meanwhile with the same handle waits for it. CancelIoEx
// from another thread ends the one that is under way with ERROR_OPERATION_ABORTED, and so does CloseHandle.
// Of a write that is cancelled the peer may have got some or all; when it was some, the connection is broken.
#pragma once

#include <minwinbase.h>

#define PIPE_ACCESS_INBOUND 0x1
#define PIPE_ACCESS_OUTBOUND 0x2
#define PIPE_ACCESS_DUPLEX 0x3

#define PIPE_WAIT 0x0
#define PIPE_NOWAIT 0x1
#define PIPE_READMODE_BYTE 0x0
#define PIPE_READMODE_MESSAGE 0x2
#define PIPE_TYPE_BYTE 0x0
#define PIPE_TYPE_MESSAGE 0x4
#define PIPE_UNLIMITED_INSTANCES 255

#define NMPWAIT_WAIT_FOREVER 0xffffffff
#define NMPWAIT_NOWAIT 0x1
#define NMPWAIT_USE_DEFAULT_WAIT 0x0

// A new instance of the pipe; clients can connect from now on. A write of more bytes than the buffer has room
// for ends when the peer has read so many that the rest fits; without a buffer, when it has read all.
//
// The first instance fixes access, type and the number of instances: others give ERROR_ACCESS_DENIED, one too
// many ERROR_PIPE_BUSY. Clients of another user than the server's (SYSTEM apart) may only read, unless the
// security descriptor has a null DACL. ERROR_NOT_SUPPORTED for PIPE_NOWAIT, for flags in openMode, and for
// inheritable handles.
HANDLE CreateNamedPipeA(LPCSTR name, DWORD openMode, DWORD pipeMode, DWORD maxInstances, DWORD outBufferSize,
                        DWORD inBufferSize, DWORD defaultTimeout, LPSECURITY_ATTRIBUTES attributes);
// Blocks until a client has connected. ERROR_PIPE_CONNECTED when one was there already, ERROR_NO_DATA when it
// has gone again.
BOOL ConnectNamedPipe(HANDLE pipe, LPOVERLAPPED overlapped);
// What the client has not read yet is lost. No client can connect until the next ConnectNamedPipe.
BOOL DisconnectNamedPipe(HANDLE pipe);
// Sets the read mode; PIPE_NOWAIT and the other two give ERROR_NOT_SUPPORTED.
BOOL SetNamedPipeHandleState(HANDLE pipe, LPDWORD mode, LPDWORD maxCollectionCount,
                             LPDWORD collectDataTimeout);
// Waits, in milliseconds of the PC's clock, until an instance listens: ERROR_SEM_TIMEOUT. A pipe without
// instances gives ERROR_FILE_NOT_FOUND at once.
BOOL WaitNamedPipeA(LPCSTR name, DWORD timeout);
