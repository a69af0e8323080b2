#include "winhost/io/MailboxDevice.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <strings.h>

#include <string_view>
#include <utility>

#include "testbed/Numbers.h"
#include "testbed/Sockets.h"
#include "winhost/io/MailboxHandle.h"
#include "winhost/pc/Pc.h"

namespace winhost {

namespace {

// The largest message and its header fit, so that a request seldom finds the socket full.
constexpr int kSendBuffer = 1 << 20;

testbed::Descriptor ConnectTcp(std::string_view port) {
    const auto number = testbed::ParseNumber<uint16_t>(port);
    if (!number) return {};
    testbed::Descriptor socket = testbed::ConnectTcp(*number);
    const int on = 1;
    if (socket) setsockopt(socket.Get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    return socket;
}

testbed::Descriptor ConnectToFirmware() {
    constexpr std::string_view kUnix = "unix:", kTcp = "tcp:127.0.0.1:";
    const std::string address = Pc::Instance().Get(&PcDescription::mailbox);
    testbed::Descriptor socket;
    if (address.starts_with(kUnix)) socket = testbed::ConnectUnix(address.substr(kUnix.size()));
    if (address.starts_with(kTcp)) socket = ConnectTcp(std::string_view(address).substr(kTcp.size()));
    if (socket) setsockopt(socket.Get(), SOL_SOCKET, SO_SNDBUF, &kSendBuffer, sizeof kSendBuffer);
    return socket;
}

}  // namespace

// Never destroyed: handles may be open until the process is gone.
MailboxDevice& MailboxDevice::Instance() {
    static MailboxDevice& device = *new MailboxDevice;
    return device;
}

bool MailboxDevice::IsPresent() const {
    return static_cast<bool>(ConnectToFirmware());
}

bool MailboxDevice::Add(const std::shared_ptr<MailboxHandle>& handle) {
    std::lock_guard lock(m_mutex);
    if (m_handles.size() == kMaxHandles) return false;
    m_handles.push_back(handle);
    return true;
}

void MailboxDevice::Remove(const MailboxHandle& handle) {
    std::lock_guard lock(m_mutex);
    std::erase_if(m_handles, [&](const auto& open) { return open.get() == &handle; });
}

void MailboxDevice::ListInstead(std::vector<std::string> paths) {
    std::lock_guard lock(m_mutex);
    m_listedInstead = std::move(paths);
}

std::vector<std::string> MailboxDevice::ListedPaths() const {
    std::lock_guard lock(m_mutex);
    return m_listedInstead.empty() ? std::vector<std::string>{kPath} : m_listedInstead;
}

size_t MailboxDevice::OpenHandles() const {
    std::lock_guard lock(m_mutex);
    return m_handles.size();
}

std::vector<std::shared_ptr<MailboxHandle>> MailboxDevice::Handles() const {
    std::lock_guard lock(m_mutex);
    return m_handles;
}

void MailboxDevice::CancelRequestsOf(const CallingThread& thread) {
    for (const auto& handle : Handles())
        handle->CancelRequestsOf(thread);
}

void MailboxDevice::Work() {
    for (const auto& handle : Handles())
        while (handle->Work()) {
        }
}

DWORD OpenMailbox(const std::string& name, DWORD access, std::shared_ptr<FileObject>& file) {
    if (strcasecmp(name.c_str(), MailboxDevice::kPath) != 0) return ERROR_FILE_NOT_FOUND;
    if (access != (GENERIC_READ | GENERIC_WRITE)) return ERROR_NOT_SUPPORTED;
    testbed::Descriptor socket = ConnectToFirmware();
    if (!socket) return ERROR_FILE_NOT_FOUND;
    const auto handle = std::make_shared<MailboxHandle>(std::move(socket));
    if (!handle->IsReady()) return ERROR_NO_SYSTEM_RESOURCES;
    if (!MailboxDevice::Instance().Add(handle)) return ERROR_ACCESS_DENIED;
    file = handle;
    return ERROR_SUCCESS;
}

}  // namespace winhost
