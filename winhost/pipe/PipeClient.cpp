#include "winhost/pipe/PipeClient.h"

#include <namedpipeapi.h>

#include "winhost/pc/Pc.h"

namespace winhost {

DWORD OpenPipe(const std::string& name, DWORD access, std::shared_ptr<FileObject>& file) {
    if (access == 0 || access & ~DWORD{GENERIC_READ | GENERIC_WRITE}) return ERROR_NOT_SUPPORTED;
    PipeFolder folder;
    PipeTerms terms{};
    testbed::Descriptor socket;
    if (const DWORD error = PipeFolder::Open(name, false, folder)) return error;
    if (const DWORD error = folder.Claim(Pc::Instance().Get(&PcDescription::userName), access, terms, socket))
        return error;
    auto client = std::make_shared<PipeClient>(
        std::make_unique<PipeConnection>(std::move(socket), terms.inBuffer), terms.inbound != 0);
    if (!client->IsUsable()) return ERROR_NO_SYSTEM_RESOURCES;
    file = std::move(client);
    return ERROR_SUCCESS;
}

DWORD PipeClient::SetReadMode(DWORD mode) {
    if (m_onlyWrites) return ERROR_ACCESS_DENIED;
    if (mode != PIPE_READMODE_MESSAGE) return ERROR_NOT_SUPPORTED;
    return Perform([&]() -> DWORD {
        m_readsMessages = true;
        return ERROR_SUCCESS;
    });
}

}  // namespace winhost
