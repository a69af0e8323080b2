#include "session/ConsentPipe.h"

#include "base/Log.h"

namespace {

constexpr const char* kPipeName = "\\\\.\\pipe\\userconsentfeature";
constexpr DWORD kInstances = 255;
constexpr int kConnectAttempts = 200;
constexpr DWORD kConnectPause = 10;  // milliseconds
constexpr DWORD kMaxAnswer = 511;

}  // namespace

bool ConsentPipe::Create() {
    std::lock_guard lock(m_mutex);
    if (m_cancelled) return false;
    // A null access control list lets every user connect.
    SECURITY_DESCRIPTOR everyone;
    if (!InitializeSecurityDescriptor(&everyone, SECURITY_DESCRIPTOR_REVISION) ||
        !SetSecurityDescriptorDacl(&everyone, TRUE, nullptr, FALSE)) {
        LogError("Error securing the namedpipe. Error code: %lu", GetLastError());
        return false;
    }
    SECURITY_ATTRIBUTES attributes{sizeof attributes, &everyone, FALSE};
    const HANDLE pipe =
        CreateNamedPipeA(kPipeName, PIPE_ACCESS_DUPLEX, PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE | PIPE_WAIT,
                         kInstances, 0, 0, 0, &attributes);
    if (pipe == INVALID_HANDLE_VALUE) {
        LogError("Error creating the namedpipe. Error code: %lu", GetLastError());
        return false;
    }
    m_pipe.Reset(pipe);
    LogInfo("Named Pipe Created Successfully");
    return true;
}

bool ConsentPipe::AwaitClient() {
    DWORD error = ERROR_SUCCESS;
    for (int attempt = 0; attempt < kConnectAttempts && !m_cancelled; ++attempt) {
        LogInfo("Waiting for the named pipe connection");
        // A program that connected to an abandoned pipe receives no question.
        if (ConnectNamedPipe(m_pipe.Get(), nullptr)) return !m_cancelled;
        error = GetLastError();
        if (error == ERROR_PIPE_CONNECTED) return !m_cancelled;
        Sleep(kConnectPause);
    }
    if (!m_cancelled) LogError("Error connecting  to the namedpipe. Error code: %lu", error);
    return false;
}

bool ConsentPipe::Write(const std::string& text) {
    DWORD written = 0;
    if (!WriteFile(m_pipe.Get(), text.c_str(), static_cast<DWORD>(text.size() + 1), &written, nullptr)) {
        LogError("Error writing to the namedpipe. Error code: %lu", GetLastError());
        return false;
    }
    LogInfo("Message written to named pipe. Bytes written:%lu", written);
    return true;
}

std::string ConsentPipe::Read() {
    char buffer[kMaxAnswer];
    DWORD size = 0;
    if (!ReadFile(m_pipe.Get(), buffer, sizeof buffer, &size, nullptr) || size == 0) {
        LogInfo("reading from namedpipe failed or no of bytes read is 0");
        return {};
    }
    LogInfo("Successfully read from the named pipe");
    const std::string text(buffer, size);
    return text.substr(0, text.find_first_of(std::string("\0\n\r", 3)));
}

void ConsentPipe::Close() {
    DisconnectNamedPipe(m_pipe.Get());
    std::lock_guard lock(m_mutex);
    m_pipe.Reset();
}

void ConsentPipe::Cancel() {
    std::lock_guard lock(m_mutex);
    m_cancelled = true;
    if (m_pipe) CancelIoEx(m_pipe.Get(), nullptr);
}

bool ConsentPipe::IsOpen() {
    std::lock_guard lock(m_mutex);
    return static_cast<bool>(m_pipe);
}
