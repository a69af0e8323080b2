#include "base/MessagePipe.h"

bool MessagePipe::MayBlock() const {
    if (m_cancelled) SetLastError(ERROR_OPERATION_ABORTED);
    return !m_cancelled;
}

bool MessagePipe::Create(const char* name) {
    std::lock_guard lock(m_mutex);
    if (!MayBlock()) return false;
    // A null access control list lets every user connect.
    SECURITY_DESCRIPTOR everyone;
    if (!InitializeSecurityDescriptor(&everyone, SECURITY_DESCRIPTOR_REVISION) ||
        !SetSecurityDescriptorDacl(&everyone, TRUE, nullptr, FALSE))
        return false;
    SECURITY_ATTRIBUTES attributes{sizeof attributes, &everyone, FALSE};
    m_pipe.Reset(CreateNamedPipeA(name, PIPE_ACCESS_DUPLEX,
                                  PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE | PIPE_WAIT,
                                  PIPE_UNLIMITED_INSTANCES, 0, 0, 0, &attributes));
    return static_cast<bool>(m_pipe);
}

bool MessagePipe::Connect() {
    return MayBlock() &&
           (ConnectNamedPipe(m_pipe.Get(), nullptr) || GetLastError() == ERROR_PIPE_CONNECTED) && MayBlock();
}

bool MessagePipe::Read(void* buffer, DWORD size, DWORD& bytes) {
    bytes = 0;
    return MayBlock() && ReadFile(m_pipe.Get(), buffer, size, &bytes, nullptr);
}

bool MessagePipe::Write(const void* data, DWORD size, DWORD& bytes) {
    bytes = 0;
    return MayBlock() && WriteFile(m_pipe.Get(), data, size, &bytes, nullptr);
}

void MessagePipe::Close() {
    DisconnectNamedPipe(m_pipe.Get());
    std::lock_guard lock(m_mutex);
    m_pipe.Reset();
}

void MessagePipe::Cancel() {
    std::lock_guard lock(m_mutex);
    m_cancelled = true;
    if (m_pipe) CancelIoEx(m_pipe.Get(), nullptr);
}

bool MessagePipe::IsOpen() {
    std::lock_guard lock(m_mutex);
    return static_cast<bool>(m_pipe);
}
