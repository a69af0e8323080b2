// The calls on named pipes; reading, writing and the client's opening are those of every file.
#include <algorithm>

#include <winbase.h>

#include "winhost/core/Gate.h"
#include "winhost/core/Results.h"
#include "winhost/pc/Pc.h"
#include "winhost/pipe/PipeServer.h"

using winhost::Finish;
using winhost::HandleTable;
using winhost::PipeEnd;
using winhost::PipeServer;
using winhost::PipeTerms;

namespace {

// Finds the end of a pipe and answers what `request(end)` does. Other files know nothing of the request.
template <class End, class Request>
BOOL Ask(HANDLE handle, Request request) {
    const auto end = HandleTable::Instance().Find<End>(handle);
    if (end) return Finish(request(*end));
    const bool isFile = HandleTable::Instance().Find<winhost::FileObject>(handle) != nullptr;
    return Finish(isFile ? ERROR_INVALID_FUNCTION : ERROR_INVALID_HANDLE);
}

// A null DACL allows every access; without any, the default is the server's own user.
bool OpensToAll(const SECURITY_ATTRIBUTES* attributes) {
    if (!attributes || !attributes->lpSecurityDescriptor) return false;
    const auto* descriptor = static_cast<const SECURITY_DESCRIPTOR*>(attributes->lpSecurityDescriptor);
    return (descriptor->Control & SE_DACL_PRESENT) && !descriptor->Dacl;
}

DWORD Check(DWORD openMode, DWORD pipeMode, DWORD maxInstances, DWORD outBufferSize, DWORD inBufferSize,
            const SECURITY_ATTRIBUTES* attributes) {
    if (maxInstances == 0 || maxInstances > PIPE_UNLIMITED_INSTANCES) return ERROR_INVALID_PARAMETER;
    const bool inherits = attributes && attributes->bInheritHandle;
    const bool fits = std::max(outBufferSize, inBufferSize) <= winhost::PipeConnection::kLongestMessage;
    const bool known =
        (openMode == PIPE_ACCESS_DUPLEX &&
         pipeMode == (PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE | PIPE_WAIT)) ||
        (openMode == PIPE_ACCESS_INBOUND && pipeMode == (PIPE_TYPE_BYTE | PIPE_READMODE_BYTE | PIPE_WAIT));
    return known && fits && !inherits ? ERROR_SUCCESS : ERROR_NOT_SUPPORTED;
}

}  // namespace

HANDLE CreateNamedPipeA(LPCSTR name, DWORD openMode, DWORD pipeMode, DWORD maxInstances, DWORD outBufferSize,
                        DWORD inBufferSize, DWORD, LPSECURITY_ATTRIBUTES attributes) {
    WINHOST_GATE("CreateNamedPipeA", INVALID_HANDLE_VALUE);
    std::shared_ptr<PipeServer> server;
    DWORD error = name ? Check(openMode, pipeMode, maxInstances, outBufferSize, inBufferSize, attributes)
                       : DWORD{ERROR_PATH_NOT_FOUND};
    if (error == ERROR_SUCCESS) {
        PipeTerms terms{maxInstances,
                        outBufferSize,
                        inBufferSize,
                        OpensToAll(attributes),
                        openMode == PIPE_ACCESS_INBOUND,
                        {}};
        const std::string user = winhost::Pc::Instance().Description().userName;
        user.copy(terms.user, sizeof terms.user - 1);
        error = PipeServer::Create(name, terms, server);
    }
    HANDLE handle = nullptr;
    if (error == ERROR_SUCCESS && !(handle = HandleTable::Instance().Add(server)))
        error = ERROR_NO_SYSTEM_RESOURCES;
    SetLastError(error);
    return handle ? handle : INVALID_HANDLE_VALUE;
}

BOOL ConnectNamedPipe(HANDLE pipe, LPOVERLAPPED overlapped) {
    WINHOST_GATE("ConnectNamedPipe", FALSE);
    return Ask<PipeServer>(
        pipe, [&](PipeServer& server) { return overlapped ? DWORD{ERROR_NOT_SUPPORTED} : server.Connect(); });
}

BOOL DisconnectNamedPipe(HANDLE pipe) {
    WINHOST_GATE("DisconnectNamedPipe", FALSE);
    return Ask<PipeServer>(pipe, [](PipeServer& server) { return server.Disconnect(); });
}

BOOL FlushFileBuffers(HANDLE file) {
    WINHOST_GATE("FlushFileBuffers", FALSE);
    return Ask<PipeEnd>(file, [](PipeEnd& end) { return end.Flush(); });
}

BOOL SetNamedPipeHandleState(HANDLE pipe, LPDWORD mode, LPDWORD maxCollectionCount,
                             LPDWORD collectDataTimeout) {
    WINHOST_GATE("SetNamedPipeHandleState", FALSE);
    return Ask<PipeEnd>(pipe, [&](PipeEnd& end) -> DWORD {
        if (maxCollectionCount || collectDataTimeout) return ERROR_NOT_SUPPORTED;
        return mode ? end.SetReadMode(*mode) : DWORD{ERROR_SUCCESS};
    });
}
