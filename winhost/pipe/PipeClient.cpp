#include "winhost/pipe/PipeClient.h"

#include <namedpipeapi.h>

#include "winhost/pc/Pc.h"

namespace winhost {

DWORD OpenPipe(const std::string& name, DWORD access, std::shared_ptr<FileObject>& file) {
    if (access == 0 || (access & ~(GENERIC_READ | GENERIC_WRITE))) return ERROR_NOT_SUPPORTED;
    // What the client writes comes in at the server.
    const DWORD pipeAccess = (access & GENERIC_READ ? PIPE_ACCESS_OUTBOUND : 0) |
                             (access & GENERIC_WRITE ? PIPE_ACCESS_INBOUND : 0);
    PipeFolder folder;
    PipeTerms terms{};
    testbed::Descriptor socket;
    if (const DWORD error = PipeFolder::Open(name, false, folder)) return error;
    if (const DWORD error = folder.Claim(pipeAccess, Pc::Instance().Description().userName, terms, socket))
        return error;
    auto connection = PipeConnection::Offer(std::move(socket), terms.holdsMessages, terms.inBuffer);
    if (!connection) return ERROR_NO_SYSTEM_RESOURCES;
    auto client = std::make_shared<PipeClient>(terms, access, std::move(connection));
    if (!client->IsUsable()) return ERROR_NO_SYSTEM_RESOURCES;
    file = std::move(client);
    return ERROR_SUCCESS;
}

}  // namespace winhost
