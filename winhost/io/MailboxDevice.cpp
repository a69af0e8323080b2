#include "winhost/io/MailboxDevice.h"

#include <strings.h>
#include <unistd.h>

#include "winhost/io/LinkSocket.h"
#include "winhost/io/MailboxHandle.h"
#include "winhost/pc/Pc.h"

namespace winhost {

namespace {

int ConnectToFirmware() {
    return ConnectLink(Pc::Instance().Description().mailbox);
}

}  // namespace

// Never destroyed: handles may be open until the process is gone.
MailboxDevice& MailboxDevice::Instance() {
    static MailboxDevice& device = *new MailboxDevice;
    return device;
}

bool MailboxDevice::IsPresent() const {
    const int socket = ConnectToFirmware();
    if (socket < 0) return false;
    close(socket);
    return true;
}

bool MailboxDevice::Reserve() {
    if (m_openHandles.fetch_add(1) < kMaxHandles) return true;
    Release();
    return false;
}

DWORD OpenMailbox(const std::string& name, DWORD access, std::shared_ptr<FileObject>& file) {
    if (strcasecmp(name.c_str(), MailboxDevice::kPath) != 0) return ERROR_FILE_NOT_FOUND;
    if (access != (GENERIC_READ | GENERIC_WRITE)) return ERROR_NOT_SUPPORTED;
    const int socket = ConnectToFirmware();
    if (socket < 0) return ERROR_FILE_NOT_FOUND;
    if (!MailboxDevice::Instance().Reserve()) {
        close(socket);
        return ERROR_ACCESS_DENIED;
    }
    file = std::make_shared<MailboxHandle>(socket);
    return ERROR_SUCCESS;
}

}  // namespace winhost
